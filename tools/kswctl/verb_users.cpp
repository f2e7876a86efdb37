#include <string>
#include <utility>

#include <kestrelwood/KSWManager.h>

#include "tools/kswctl/asker.h"
#include "tools/kswctl/record.h"
#include "tools/kswctl/verbs.h"

namespace tools::kswctl {

ExitStatus listUsers(const Options& options) {
    const ksw::Dictionary users = KSWManager::shared().userIdentifiersAndUIDs();
    if (users.empty()) {
        // A failed request gives no users either.
        if (const auto status = complainWhenSilent(KSWManager::shared().connection())) {
            return *status;
        }
    }
    Record list = Record::array();
    for (const auto& [identifier, uid] : users) {
        list.push_back(Record::object({{"uid", recordOf(uid)}, {"identifier", identifier}}));
    }
    if (options.json) {
        print(Record::object({{"users", std::move(list)}}), Form::Json);
    } else {
        printLines(list);
    }
    return ExitStatus::Done;
}

}  // namespace tools::kswctl
