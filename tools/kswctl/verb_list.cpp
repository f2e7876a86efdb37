#include <memory>
#include <variant>

#include "tools/kswctl/items.h"
#include "tools/kswctl/verbs.h"

namespace tools::kswctl {

ExitStatus listItems(const Options& options) {
    const auto answer = listOrComplaint(options);
    if (const auto* status = std::get_if<ExitStatus>(&answer)) {
        return *status;
    }
    printItems(std::get<std::shared_ptr<KSWList>>(answer)->items(), options);
    return ExitStatus::Done;
}

}  // namespace tools::kswctl
