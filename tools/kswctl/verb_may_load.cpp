#include <cstdint>
#include <optional>
#include <string>
#include <variant>

#include <kestrelwood/KSWFunctions.h>
#include <kestrelwood/KSWTypes.h>
#include <unistd.h>

#include "tools/common/outcome.h"
#include "tools/kswctl/asker.h"
#include "tools/kswctl/record.h"
#include "tools/kswctl/subject.h"
#include "tools/kswctl/verbs.h"

namespace tools::kswctl {
namespace {

/// The identifier that the daemon keeps the item under, as far as it follows from the job file.
Record identifierOf(const Subject& subject) {
    if (!subject.configuration) {
        return nullptr;
    }
    const auto* label = ksw::find<std::string>(*subject.configuration, KSWConfigLabel);
    const auto identifier =
        label != nullptr ? ComposedItemIdentifier(static_cast<KSWItemType>(subject.type), *label) : std::nullopt;
    return identifier ? Record(*identifier) : Record(nullptr);
}

/// The question was not answered. The operation does not say why; what a user may not ask is known beforehand.
ExitStatus unanswered(const Asker& asker, const Subject& subject) {
    if (const auto status = complainWhenSilent(asker.connection())) {
        return *status;
    }
    if (subject.uid != getuid() && geteuid() != 0) {
        complain("not permitted: only the system's administrator may ask for another user");
        return ExitStatus::NotPermitted;
    }
    complain("the daemon gave no verdict");
    return ExitStatus::Failed;
}

}  // namespace

ExitStatus askWhetherJobMayLoad(const Options& options) {
    const Outcome<Subject> outcome = subjectOf(options, JobFile::Read);
    if (const auto* complaint = std::get_if<Complaint>(&outcome)) {
        return complain(*complaint);
    }
    const auto& subject = std::get<Subject>(outcome);
    const Asker asker(options.road);
    std::int64_t disposition = 0;
    std::optional<ksw::Data> LWCR;
    if (!asker.effectiveDisposition(subject, &disposition, &LWCR)) {
        return unanswered(asker, subject);
    }
    const auto bits = static_cast<KSWDisposition>(disposition);
    const bool launchable = KSWDispositionIsLaunchable(bits);
    print(Record::object({{"identifier", identifierOf(subject)},
                          {"launchable", launchable},
                          {"disposition", bits},
                          {"dispositionText", KSWDispositionDescription(bits)},
                          {"haveLWCR", LWCR.has_value()}}),
          formOf(options));
    return launchable ? ExitStatus::Done : ExitStatus::NotPermitted;
}

}  // namespace tools::kswctl
