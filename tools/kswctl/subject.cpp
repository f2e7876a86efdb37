#include "tools/kswctl/subject.h"

#include <filesystem>
#include <system_error>
#include <utility>

#include <kestrelwood/KSWFunctions.h>
#include <kestrelwood/KSWTypes.h>

#include "tools/kswctl/job_file.h"
#include "tools/kswctl/place.h"

namespace tools::kswctl {
namespace {

namespace fs = std::filesystem;

Complaint usage(std::string text) {
    return {ExitStatus::Usage, std::move(text)};
}

/// A kind that is a legacy one where no application carries it.
bool hasLegacyForm(KSWItemType kind) {
    return (kind & (KSWItemTypeAgent | KSWItemTypeDaemon | KSWItemTypeLoginItem)) != 0;
}

bool isInside(const fs::path& path, const fs::path& folder) {
    const fs::path inside = path.lexically_relative(folder);
    return !inside.empty() && inside != "." && *inside.begin() != "..";
}

/// Where the job is: its own absolute URL, or the application and the place inside it. A file that is to be read is
/// the application's only if no link leads out to it.
Outcome<Subject> placeOf(const Options& options, JobFile jobFile) {
    const fs::path job = settled(options.job);
    if (!options.app) {
        const KSWItemType type = options.kind | (hasLegacyForm(options.kind) ? KSWItemTypeLegacyBit : 0);
        return Subject{std::nullopt, ksw::URL::fileURL(job.native()), static_cast<std::int64_t>(type), std::nullopt,
                       options.uid};
    }
    std::error_code problem;
    const fs::path app = fs::canonical(*options.app, problem);
    if (problem) {
        return usage("--app: " + *options.app + ": " + problem.message());
    }
    const fs::path file = jobFile == JobFile::Read ? fs::weakly_canonical(job, problem) : job;
    if (!isInside(job, app) || !isInside(file, app)) {
        return usage(options.job + " is not inside the application " + *options.app);
    }
    return Subject{ksw::URL::fileURL(app.native(), ksw::PathKind::Directory),
                   ksw::URL::fileURL(job.lexically_relative(app).native()), static_cast<std::int64_t>(options.kind),
                   std::nullopt, options.uid};
}

bool isItselfTheItem(const Options& options) {
    return options.kind == KSWItemTypeLoginItem && isDirectory(options.job);
}

}  // namespace

Outcome<Subject> subjectOf(const Options& options, JobFile jobFile) {
    Outcome<Subject> place = placeOf(options, jobFile);
    auto* subject = std::get_if<Subject>(&place);
    if (subject == nullptr) {
        return place;
    }
    if (!KSWItemTypeValidateRegistrationParameters(static_cast<KSWItemType>(subject->type), subject->bundleURL,
                                                   subject->itemURL)) {
        const char* wrong =
            options.app ? " is in no application (--app)" : " needs the application that carries it (--app)";
        return usage("a " + KSWItemTypeBaseDescription(options.kind) + wrong);
    }
    if (jobFile == JobFile::Read && !isItselfTheItem(options)) {
        Outcome<ksw::Dictionary> configuration = configurationOfJob(settled(options.job).native());
        if (auto* complaint = std::get_if<Complaint>(&configuration)) {
            return std::move(*complaint);
        }
        subject->configuration = std::get<ksw::Dictionary>(std::move(configuration));
    }
    return place;
}

}  // namespace tools::kswctl
