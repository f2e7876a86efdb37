#include "servers/kestrelwoodd/changed_files.h"

#include <kestrelwood/KSWFunctions.h>

#include "platform/facts/code_file.h"
#include "platform/facts/file_inside.h"
#include "platform/facts/libcrypto.h"
#include "platform/host/bundles.h"
#include "platform/host/file_facts.h"
#include "servers/kestrelwoodd/reading_as.h"

namespace ksw::daemon {

namespace {

/// The largest executable whose digest is looked at again: a record can say one of any file of its user's.
constexpr std::uint64_t kDigestedMax = 256ULL * 1024 * 1024;

/// When the file was changed, in seconds of the reference date; 0 when that cannot be seen.
double dateOf(const std::optional<std::string>& path) {
    if (!path || !path->starts_with('/')) {
        return 0;
    }
    const Result<host::FileFacts> facts = host::fileFacts(*path);
    return facts ? facts->contentModificationDate.secondsSinceReference : 0;
}

bool hasChanged(double recorded, const std::optional<std::string>& path) {
    const double now = dateOf(path);
    return now != 0 && now != recorded;
}

std::optional<std::string> fileOf(const KSWItem& record) {
    return record.url() && record.url()->isFileURL() ? std::optional(record.url()->path()) : std::nullopt;
}

/// The bundle that a recorded item lies in, also when its own URL does not say so.
std::optional<URL> bundleOf(const KSWItem& record) {
    if (record.intersectsType(KSWItemTypeApp)) {
        return record.url();
    }
    if (isJob(record.type()) && record.isLegacy()) {
        return std::nullopt;
    }
    const URL* base = record.url()->baseURL();
    const ItemPointer container = base == nullptr ? record.container() : nullptr;
    const bool isInApplication = container != nullptr && container->intersectsType(KSWItemTypeApp);
    return base != nullptr ? std::optional(*base) : isInApplication ? container->url() : std::nullopt;
}

std::optional<Data> digestOf(const std::string& path) {
    const facts::LibCrypto* crypto = facts::LibCrypto::shared();
    const Result<facts::CodeFile> file = facts::CodeFile::open(path);
    const Result<facts::FileStamp> stamp = file ? file->stamp() : Result<facts::FileStamp>(file.error());
    if (crypto == nullptr || !stamp || stamp->size > kDigestedMax) {
        return std::nullopt;
    }
    const auto digest = facts::sha256Of(*crypto, *file, stamp->size);
    return digest ? std::optional(Data(digest->begin(), digest->end())) : std::nullopt;
}

/// The job's own words, when its file still describes this job and what it runs.
std::optional<Dictionary> jobInFile(const KSWItem& record) {
    const std::optional<Dictionary> job = readPropertyListFile(record.url()->absoluteURL());
    std::optional<Dictionary> configuration = job ? configurationFromJob(*job) : std::nullopt;
    if (!configuration || !configuration->contains(KSWConfigExecutablePath)) {
        return std::nullopt;
    }
    const std::string* label = find<std::string>(*configuration, KSWConfigLabel);
    const bool isSame = label != nullptr && ComposedItemIdentifier(record.type(), *label) == record.identifier();
    return isSame ? std::move(configuration) : std::nullopt;
}

Array asArray(const std::vector<std::string>& texts) {
    return {texts.begin(), texts.end()};
}

bool isApplication(const std::string& path) {
    return host::bundleExtension(path) == host::kApplicationExtension;
}

/// Of a job that only opens an application the record names that; the job itself runs what opens it, which its file
/// says, or else its first argument.
std::optional<std::string> programOf(const KSWItem& record) {
    const std::optional<std::string>& executable = record.executablePath();
    const auto& arguments = record.programArguments();
    const bool opens = executable && isApplication(*executable) && arguments && arguments->size() >= 2 &&
                       ((*arguments)[0] == "open" || (*arguments)[0] == "/usr/bin/open");
    if (!opens) {
        return executable;
    }
    const std::optional<Dictionary> job = jobInFile(record);
    const auto* words = job ? find<Array>(*job, KSWConfigArguments) : nullptr;
    const bool isSame = words != nullptr && *words == asArray(*arguments);
    return isSame ? *find<std::string>(*job, KSWConfigExecutablePath) : (*arguments)[0];
}

Dictionary recordedJob(const KSWItem& record) {
    Dictionary job{{KSWConfigLabel, Value(record.baseIdentifier().value_or(std::string()))}};
    if (const std::optional<std::string> program = programOf(record)) {
        job.emplace(KSWConfigExecutablePath, *program);
    }
    if (record.programArguments()) {
        job.emplace(KSWConfigArguments, asArray(*record.programArguments()));
    }
    if (record.associatedBundleIdentifiers() && !record.isCurated()) {
        job.emplace(KSWConfigBundleIdentifiers, asArray(*record.associatedBundleIdentifiers()));
    }
    const std::optional<std::string> code = codeOf(record);
    const std::optional<Data> digest = record.sha256() && code ? digestOf(*code) : std::nullopt;
    if (digest) {
        job.emplace(KSWConfigSHA256Checksum, *digest);
    }
    return job;
}

bool haveDatesChanged(const KSWItem& record, const std::optional<std::string>& code, const Caller& rights) {
    const ReadingAs reading(rights);
    return reading.ok() && (hasChanged(record.modificationDate(), fileOf(record)) ||
                            (isJob(record.type()) && hasChanged(record.executableModificationDate(), code)));
}

}  // namespace

bool haveFilesChanged(const KSWItem& record, const Caller& rights) {
    if (record.intersectsType(KSWItemTypeUserItem | KSWItemTypeDeveloper)) {
        return false;
    }
    const std::optional<std::string> code = codeOf(record);
    // An application keeps its date when a file inside it becomes another.
    return haveDatesChanged(record, code, rights) ||
           (code && isApplication(*code) && isOfOtherMaker(record, *code, rights));
}

std::optional<LaunchItem> recordedItem(const KSWItem& record, Uid uid, const Caller& rights) {
    const ReadingAs reading(rights);
    if (!reading.ok() || !record.url()) {
        return std::nullopt;
    }
    LaunchItem item;
    item.type = record.type();
    item.bundleURL = bundleOf(record);
    item.url = record.url();
    item.uid = uid;
    item.scope = uid;
    if (isJob(record.type())) {
        const bool isOther = hasChanged(record.modificationDate(), fileOf(record));
        std::optional<Dictionary> job = isOther ? jobInFile(record) : std::nullopt;
        item.configuration = job ? std::move(job) : recordedJob(record);
    }
    return item;
}

}  // namespace ksw::daemon
