// kswctl: asks the management daemon on behalf of a person or a script.
#include <variant>

#include "tools/kswctl/options.h"
#include "tools/kswctl/verbs.h"

namespace tools::kswctl {
namespace {

ExitStatus run(const Options& options) {
    switch (options.verb) {
        case Verb::Users:
            return listUsers(options);
        case Verb::Register:
            return registerJob(options);
        case Verb::Unregister:
            return unregisterJob(options);
        case Verb::MayLoad:
            return askWhetherJobMayLoad(options);
        case Verb::Status:
            return showStatus(options);
        case Verb::List:
            return listItems(options);
        case Verb::Show:
            return showItem(options);
        case Verb::Add:
            return addItem(options);
        case Verb::Remove:
            return removeItem(options);
        case Verb::Enable:
        case Verb::Disable:
        case Verb::Allow:
        case Verb::Disallow:
        case Verb::Hide:
        case Verb::Unhide:
            return changeItem(options);
        case Verb::Watch:
            return watchItems(options);
        case Verb::Facts:
            return showFacts(options);
        case Verb::Apps:
            return listApplications(options);
        case Verb::Identify:
            return identifyFile(options);
        case Verb::BookmarkMake:
            return makeBookmark(options);
        case Verb::BookmarkShow:
            return showBookmark(options);
        case Verb::BookmarkResolve:
            return resolveBookmark(options);
        case Verb::BookmarkMatch:
            return matchBookmarks(options);
    }
    return ExitStatus::Failed;
}

}  // namespace
}  // namespace tools::kswctl

int main(int argc, char** argv) {
    const auto parsed = tools::kswctl::parseOptions(argc, argv);
    const auto* options = std::get_if<tools::kswctl::Options>(&parsed);
    return static_cast<int>(options != nullptr ? tools::kswctl::run(*options)
                                               : std::get<tools::ExitStatus>(parsed));
}
