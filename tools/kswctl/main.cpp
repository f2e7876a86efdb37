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
        case kswctl::Verb::List:
            return kswctl::listItems(options);
        case kswctl::Verb::Show:
            return kswctl::showItem(options);
        case kswctl::Verb::Add:
            return kswctl::addItem(options);
        case kswctl::Verb::Remove:
            return kswctl::removeItem(options);
        case kswctl::Verb::Enable:
        case kswctl::Verb::Disable:
        case kswctl::Verb::Allow:
        case kswctl::Verb::Disallow:
        case kswctl::Verb::Hide:
        case kswctl::Verb::Unhide:
            return kswctl::changeItem(options);
        case kswctl::Verb::Watch:
            return kswctl::watchItems(options);
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
