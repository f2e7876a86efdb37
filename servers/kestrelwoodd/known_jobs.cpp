#include "servers/kestrelwoodd/known_jobs.h"

#include <kestrelwood/KSWAttributions.h>

#include "platform/base/limits.h"
#include "servers/kestrelwoodd/reading_as.h"

namespace ksw::daemon {

namespace {

using Text = std::optional<std::string>;
using Texts = std::optional<std::vector<std::string>>;

template <class T>
std::optional<T> valueOf(const LaunchItem& item, std::string_view key) {
    const T* const value = find<T>(*item.configuration, key);
    return value == nullptr ? std::nullopt : std::optional(*value);
}

/// An array of nothing but texts.
Texts textsOf(const LaunchItem& item, std::string_view key) {
    const Array* const values = find<Array>(*item.configuration, key);
    if (values == nullptr) {
        return std::nullopt;
    }
    std::vector<std::string> texts;
    texts.reserve(values->size());
    for (const Value& value : *values) {
        const std::string* const text = value.as<std::string>();
        if (text == nullptr) {
            return std::nullopt;
        }
        texts.push_back(*text);
    }
    return texts;
}

bool isLauncher(const Texts& arguments) {
    return arguments && !arguments->empty() && ((*arguments)[0] == "open" || (*arguments)[0] == "/usr/bin/open");
}

/// The program of a plain job.
Text plainProgramOf(const LaunchItem& item) {
    const bool isLegacyJob = isJob(item.type) && (item.type & KSWItemTypeLegacyBit) != 0;
    if (!isLegacyJob || !item.configuration) {
        return std::nullopt;
    }
    Text program = valueOf<std::string>(item, KSWConfigExecutablePath);
    const bool isPlain = program && program->starts_with('/') && program->find(".app") == std::string::npos &&
                         !isLauncher(textsOf(item, KSWConfigArguments)) &&
                         !textsOf(item, KSWConfigBundleIdentifiers);
    return isPlain ? std::move(program) : std::nullopt;
}

/// Whether the record says what the request does.
bool says(const KSWItem& record, const LaunchItem& item) {
    return record.type() == item.type && record.url() == item.url &&
           record.executablePath() == valueOf<std::string>(item, KSWConfigExecutablePath) &&
           record.programArguments() == textsOf(item, KSWConfigArguments) &&
           record.sha256() == valueOf<Data>(item, KSWConfigSHA256Checksum);
}

/// Whether somebody else than the program's signer may be named as the job's maker.
bool isCurated(const KSWItem& record, const LaunchItem& item) {
    return record.isCurated() ||
           (!record.teamIdentifier() &&
            CuratedInternalNameForLabel(valueOf<std::string>(item, KSWConfigLabel)).has_value());
}

}  // namespace

std::optional<JobFiles> filesOfPlainJob(const LaunchItem& item, const Caller& caller) {
    const Text program = plainProgramOf(item);
    if (!program) {
        return std::nullopt;
    }
    const ReadingAs rights(caller);
    return rights.ok() ? std::optional(JobFiles{facts::stampAt(item.url->path()), facts::stampAt(*program),
                                                caller.uid, caller.gid})
                       : std::nullopt;
}

bool KnownJobs::isKnown(const KSWItem& record, const LaunchItem& item, const JobFiles& files) {
    std::optional<facts::VerifiedState> program;
    {
        const auto known = known_.lock();
        const auto found = known->find(*record.uuid());
        if (found == known->end() || found->second.generation != record.generation() ||
            found->second.files != files) {
            return false;
        }
        program = found->second.program;
    }
    return says(record, item) && !isCurated(record, item) && verifier_.known(files.program) == program;
}

void KnownJobs::remember(const KSWItem& record, const JobFiles& files) {
    const std::optional<facts::VerifiedState> program = verifier_.known(files.program);
    if (!program) {
        return;
    }
    const auto known = known_.lock();
    // Those of a host with more jobs than this are learned anew; that happens once in so many registrations.
    if (known->size() >= limits::kVerifiedFilesMax) {
        known->clear();
    }
    known->insert_or_assign(*record.uuid(), Known{record.generation(), files, *program});
}

}  // namespace ksw::daemon
