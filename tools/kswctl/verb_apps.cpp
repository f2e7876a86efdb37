#include <utility>

#include <kestrelwood/KSWApplications.h>

#include "tools/kswctl/record.h"
#include "tools/kswctl/verbs.h"

namespace tools::kswctl {

ExitStatus listApplications(const Options& options) {
    Record list = Record::array();
    for (const ksw::Application& application : ksw::applications(options.uid)) {
        list.push_back(Record::object({{"identifier", application.identifier()},
                                       {"name", application.localizedName()},
                                       {"path", application.url().path()},
                                       {"team", orNull(application.team())},
                                       {"placeholder", application.isPlaceholder()}}));
    }
    if (options.json) {
        print(Record::object({{"apps", std::move(list)}}), Form::Json);
    } else {
        printLines(list);
    }
    return ExitStatus::Done;
}

}  // namespace tools::kswctl
