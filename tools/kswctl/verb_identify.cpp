// Under which identifier and name a file would be recorded, and why it would not.
#include <filesystem>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <variant>

#include <kestrelwood/KSWAdditions.h>
#include <kestrelwood/KSWCodeSignInfo.h>
#include <kestrelwood/KSWFunctions.h>
#include <kestrelwood/code_signing.h>

#include "tools/kswctl/job_file.h"
#include "tools/kswctl/place.h"
#include "tools/kswctl/record.h"
#include "tools/kswctl/subject.h"
#include "tools/kswctl/verbs.h"

namespace tools::kswctl {
namespace {

constexpr KSWItemType kJob = KSWItemTypeAgent | KSWItemTypeDaemon;

/// A file, and what a registration would say of it.
struct Candidate {
    KSWItemType type = 0;
    std::string path;
    std::optional<ksw::URL> bundleURL;
    std::optional<ksw::URL> url;
    std::optional<ksw::Dictionary> configuration;
    std::string complaint;  ///< What is wrong with the job file; empty for nothing.
};

ksw::URL fileURL(const std::string& path) {
    return ksw::URL::fileURL(path, isDirectory(path) ? ksw::PathKind::Directory : ksw::PathKind::File);
}

/// What the file is likely to be.
KSWItemType likelyKind(const std::string& path, bool isInApplication) {
    if (__ksw_isApplication(fileURL(path))) {
        return isInApplication ? KSWItemTypeLoginItem : KSWItemTypeApp;
    }
    return path.ends_with(".plist") ? KSWItemTypeAgent : KSWItemTypeUserItem;
}

void readJob(Candidate& candidate) {
    Outcome<ksw::Dictionary> configuration = configurationOfJob(candidate.path);
    if (const auto* complaint = std::get_if<Complaint>(&configuration)) {
        candidate.complaint = complaint->text;
    } else {
        candidate.configuration = std::get<ksw::Dictionary>(std::move(configuration));
    }
}

Outcome<Candidate> candidateOf(Options options) {
    Candidate candidate;
    candidate.path = settled(options.location).native();
    options.kind = options.kindOfFile.value_or(likelyKind(candidate.path, options.app.has_value()));
    candidate.type = options.kind;
    if (options.kind == KSWItemTypeApp) {
        if (options.app) {
            return Complaint{ExitStatus::Usage, "an app is in no other application (--app)"};
        }
        candidate.bundleURL = ksw::URL::fileURL(candidate.path, ksw::PathKind::Directory);
        return candidate;
    }
    options.job = options.location;
    Outcome<Subject> place = subjectOf(options, JobFile::LeftAlone);
    if (auto* complaint = std::get_if<Complaint>(&place)) {
        return std::move(*complaint);
    }
    const auto& subject = std::get<Subject>(place);
    candidate.type = static_cast<KSWItemType>(subject.type);
    candidate.bundleURL = subject.bundleURL;
    candidate.url = subject.itemURL;
    if ((candidate.type & kJob) != 0) {
        readJob(candidate);
    }
    return candidate;
}

/// Why the file has no identifier.
std::string reasonOf(const Candidate& candidate) {
    if ((candidate.type & kJob) != 0) {
        return candidate.complaint;
    }
    if ((candidate.type & KSWItemTypeUserItem) != 0) {
        std::error_code problem;
        static_cast<void>(std::filesystem::canonical(candidate.path, problem));
        return candidate.path + ": " + problem.message();
    }
    std::optional<ksw::Error> error;
    const auto info = KSWCodeSignInfo::codeSignInfoForURL(fileURL(candidate.path), &error);
    if (info != nullptr || !error) {
        return candidate.path + ": the signature names no identifier";
    }
    return candidate.path + ": " + ksw::codeStatusText(error->code()) + " (" + std::to_string(error->code()) + ")";
}

}  // namespace

ExitStatus identifyFile(const Options& options) {
    Outcome<Candidate> outcome = candidateOf(options);
    if (const auto* complaint = std::get_if<Complaint>(&outcome)) {
        return complain(*complaint);
    }
    const auto& candidate = std::get<Candidate>(outcome);
    const std::optional<std::string> identifier = ItemIdentifierWithRegistrationInfo(
        candidate.type, candidate.bundleURL, candidate.url, candidate.configuration);
    const std::optional<std::string> nameOfJob = ItemNameForStewardPlist(candidate.configuration);
    const std::string reason = identifier ? "" : reasonOf(candidate);
    print(Record::object({
              {"identifier", orNull(identifier)},
              {"name", nameOfJob ? *nameOfJob : ItemNameForURL(fileURL(candidate.path))},
              {"type", candidate.type},
              {"typeText", KSWItemTypeDescription(candidate.type)},
              {"url", fileURL(candidate.path).absoluteString()},
              {"reason", identifier ? Record(nullptr) : Record(reason)},
          }),
          formOf(options));
    return identifier ? ExitStatus::Done : complain(Complaint{ExitStatus::Failed, reason});
}

}  // namespace tools::kswctl
