#include <variant>

#include <kestrelwood/KSWManager.h>

#include "tools/kswctl/asker.h"
#include "tools/kswctl/record.h"
#include "tools/kswctl/verbs.h"

namespace tools::kswctl {

ExitStatus showStatus(const Options& options) {
    ksw::ServiceConnection* connection = KSWManager::shared().connection();
    const Form form = formOf(options);
    const auto answer = countersOrComplaint(connection);
    if (const auto* status = std::get_if<ExitStatus>(&answer)) {
        print(Record::object({{"reachable", false}}), form);
        return *status;
    }
    print(Record::object({{"reachable", true},
                          {"service", connection->serviceName()},
                          {"counters", recordOf(std::get<ksw::Dictionary>(answer))}}),
          form);
    return ExitStatus::Done;
}

}  // namespace tools::kswctl
