// code_sign_info.h: signing information of code that is open already.
#pragma once

#include <memory>

#include <kestrelwood/KSWCodeSignInfo.h>

#include "platform/base/result.h"
#include "platform/facts/code.h"
#include "platform/facts/file_inside.h"

namespace ksw {

struct CodeSignInfoAccess {
    /// The object; for who opens code with other rights than it is judged with. Any thread; blocks while the code
    /// is read when nobody has asked for its facts before. Error: as for the exported operation; nothing is logged.
    static Result<std::shared_ptr<KSWCodeSignInfo>> of(const facts::StaticCode& code);

    /// As the exported operation for a file's URL, its word in the log included; of the file as it was found.
    static std::shared_ptr<KSWCodeSignInfo> ofFound(const facts::FoundFile& file);
};

}  // namespace ksw
