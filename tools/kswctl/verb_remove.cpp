#include <optional>
#include <variant>

#include <kestrelwood/KSWManager.h>

#include "tools/kswctl/asker.h"
#include "tools/kswctl/items.h"
#include "tools/kswctl/record.h"
#include "tools/kswctl/verbs.h"

namespace tools::kswctl {

ExitStatus removeItem(const Options& options) {
    const auto answer = itemOrComplaint(options);
    if (const auto* status = std::get_if<ExitStatus>(&answer)) {
        return *status;
    }
    const KSWItem::Pointer& item = std::get<KSWItem::Pointer>(answer);
    std::optional<ksw::Error> error;
    KSWManager::shared().removeItem(item, options.uid, &error);
    print(answerRecord(resultCodeOf(error), item.get(), options.uid), formOf(options));
    return error ? complainOf(error, KSWManager::shared().connection()) : ExitStatus::Done;
}

}  // namespace tools::kswctl
