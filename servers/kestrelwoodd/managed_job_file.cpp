#include "servers/kestrelwoodd/managed_job_file.h"

#include <algorithm>

#include <kestrelwood/KSWErrors.h>
#include <kestrelwood/KSWFunctions.h>

#include "platform/base/limits.h"
#include "platform/host/file_facts.h"

namespace ksw::daemon {

namespace {

constexpr std::string_view kAgents = "agents";

bool isAgentsFolder(std::string_view folder) {
    const auto isSame = [](char one, char other) { return (one | 0x20) == other; };
    return folder.size() >= kAgents.size() &&
           std::equal(kAgents.begin(), kAgents.end(), folder.end() - static_cast<std::ptrdiff_t>(kAgents.size()),
                      [&](char wanted, char found) { return isSame(found, wanted); });
}

KSWItemType typeOfJobAt(std::string_view path) {
    const std::string_view folder = path.substr(0, path.rfind('/'));
    return (isAgentsFolder(folder) ? KSWItemTypeAgent : KSWItemTypeDaemon) | KSWItemTypeLegacyBit |
           KSWItemTypeManagedBit;
}

}  // namespace

Result<JobOfFile> readManagedJob(const std::string& path, const Caller& caller) {
    const bool isUsable =
        path.starts_with('/') && path.size() <= limits::kBookmarkPathMax && path.find('\0') == std::string::npos;
    if (!isUsable) {
        return KSWErrorWithCode(KSWErrorInvalidParameter);
    }
    const std::optional<URL> url = URL::fileURL(path);
    const std::optional<Dictionary> job = readPropertyListFile(*url);
    if (!job) {
        return KSWErrorWithCode(host::fileExists(path) ? KSWErrorInvalidParameter : KSWErrorRecordNotFound);
    }
    const std::optional<Dictionary> configuration = configurationFromJob(*job);
    if (!configuration) {
        return KSWErrorWithCode(KSWErrorInvalidParameter);
    }
    const Subject subject{Owner::Bundle, kNoToken, kNoURL, typeOfJobAt(path), url, configuration, kEveryUser};
    Result<LaunchItem> item = checked(subject, kNoURL, caller);
    if (!item) {
        return item.error();
    }
    const std::optional<std::string> identifier = identify(*item, caller);
    const std::string* label = find<std::string>(*configuration, KSWConfigLabel);
    if (!identifier || label == nullptr || label->empty()) {
        return KSWErrorWithCode(KSWErrorInvalidParameter);
    }
    Result<ItemFacts> facts = factsOf(*item, *identifier, Purpose::Record, caller);
    if (!facts) {
        return facts.error();
    }
    facts->item->setType(facts->item->type() | KSWItemTypeManagedBit);
    return JobOfFile{*label, *std::move(facts)};
}

}  // namespace ksw::daemon
