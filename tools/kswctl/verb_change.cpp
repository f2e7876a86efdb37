#include <utility>
#include <variant>

#include <kestrelwood/KSWErrors.h>
#include <kestrelwood/KSWManager.h>

#include "tools/kswctl/asker.h"
#include "tools/kswctl/change.h"
#include "tools/kswctl/items.h"
#include "tools/kswctl/record.h"
#include "tools/kswctl/verbs.h"

namespace tools::kswctl {
namespace {

Change changeOf(Verb verb) {
    switch (verb) {
        case Verb::Enable:
            return {KSWDispositionEnabled, true};
        case Verb::Disable:
            return {KSWDispositionEnabled, false};
        case Verb::Allow:
            return {KSWDispositionAllowed, true};
        case Verb::Disallow:
            return {KSWDispositionAllowed, false};
        case Verb::Hide:
            return {KSWDispositionHidden, true};
        case Verb::Unhide:
            return {KSWDispositionHidden, false};
        default:
            return {};
    }
}

}  // namespace

ExitStatus changeItem(const Options& options) {
    const auto answer = itemOrComplaint(options);
    if (const auto* status = std::get_if<ExitStatus>(&answer)) {
        return *status;
    }
    const KSWItem::Pointer& item = std::get<KSWItem::Pointer>(answer);
    const Changed changed = changeRecord(item, options.uid, changeOf(options.verb));
    print(answerRecord(changed.code, changed.item.get(), options.uid,
                       changed.code == KSWErrorNone ? "nothing to change" : ""),
          formOf(options));
    const ExitStatus status = exitStatusOfCode(changed.code);
    return status == ExitStatus::Done ? status : complainOf(changed.error, KSWManager::shared().connection());
}

}  // namespace tools::kswctl
