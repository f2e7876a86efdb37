// kswctl: asks the management daemon on behalf of a person or a script.
#include <variant>

#include "tools/kswctl/options.h"
#include "tools/kswctl/verbs.h"

namespace {

kswctl::ExitStatus run(const kswctl::Options& options) {
    switch (options.verb) {
        case kswctl::Verb::Users:
            return kswctl::listUsers(options);
        case kswctl::Verb::Register:
            return kswctl::registerJob(options);
        case kswctl::Verb::Unregister:
            return kswctl::unregisterJob(options);
        case kswctl::Verb::MayLoad:
            return kswctl::askWhetherJobMayLoad(options);
        case kswctl::Verb::Status:
            return kswctl::showStatus(options);
    }
    return kswctl::ExitStatus::Failed;
}

}  // namespace

int main(int argc, char** argv) {
    const auto parsed = kswctl::parseOptions(argc, argv);
    const auto* options = std::get_if<kswctl::Options>(&parsed);
    const kswctl::ExitStatus status = options != nullptr ? run(*options) : std::get<kswctl::ExitStatus>(parsed);
    return static_cast<int>(status);
}
