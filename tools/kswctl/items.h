// items.h: the records that the daemon holds, and the one that the command line means.
#pragma once

#include <memory>
#include <variant>

#include <kestrelwood/KSWItem.h>
#include <kestrelwood/KSWList.h>

#include "tools/common/exit_status.h"
#include "tools/kswctl/options.h"

namespace tools::kswctl {

/// The items of the kinds and of the user that the command line names, in a list that stays current. When there is
/// none standard error says why, and the status that follows from it is the answer.
std::variant<std::shared_ptr<KSWList>, ExitStatus> listOrComplaint(const Options& options);

/// The one item that the command line names, with its containers. Standard error says when there is none, and lists
/// the candidates when there are several; then the status that follows from it is the answer.
std::variant<KSWItem::Pointer, ExitStatus> itemOrComplaint(const Options& options);

}  // namespace tools::kswctl
