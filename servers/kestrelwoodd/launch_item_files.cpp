#include <kestrelwood/KSWFunctions.h>

#include "platform/base/limits.h"
#include "platform/host/file_facts.h"
#include "servers/kestrelwoodd/launch_item.h"
#include "servers/kestrelwoodd/reading_as.h"

namespace ksw::daemon {

namespace {

std::optional<std::string> pathOf(const std::optional<URL>& url) {
    return url && url->isFileURL() ? std::optional(url->path()) : std::nullopt;
}

/// A user item is known by where it is: a file by its canonical path, all else by its URL, which has to say what
/// kind of URL it is, so that it cannot pass for the identifier of another kind of item.
std::optional<std::string> identifierOfUserItem(const URL& url) {
    if (!url.isFileURL()) {
        return url.scheme().empty() ? std::nullopt : std::optional(url.absoluteString());
    }
    Result<std::string> path = host::canonicalPath(url.path());
    return path.ok() ? std::optional(URL::fileURL(*path).absoluteString()) : std::nullopt;
}

/// When a file was changed, in seconds of the reference date; 0 when that cannot be seen.
double dateOf(const std::optional<std::string>& path) {
    if (!path || path->empty() || path->front() != '/') {
        return 0;
    }
    Result<host::FileFacts> facts = host::fileFacts(*path);
    return facts.ok() ? facts->contentModificationDate.secondsSinceReference : 0;
}

/// An executable that is not named from the root lies in the item's bundle.
std::optional<std::string> executableOf(const KSWItem& record) {
    const std::optional<std::string>& path = record.executablePath();
    if (!path || path->starts_with('/') || record.isLegacy() || !record.url() ||
        record.url()->baseURL() == nullptr) {
        return path;
    }
    return pathOf(URL::fileURL(*path, *record.url()->baseURL()));
}

std::optional<std::string> nameOf(const Configuration& configuration) {
    if (configuration.executablePath) {
        const std::vector<std::string> components = pathComponents(*configuration.executablePath);
        if (!components.empty()) {
            return components.back();
        }
    }
    return configuration.label;
}

}  // namespace

std::optional<std::string> identifierOf(const LaunchItem& item, const Caller& caller) {
    const bool isJob = (item.type & (KSWItemTypeAgent | KSWItemTypeDaemon)) != 0;
    if (isJob && item.configuration.label && !item.configuration.label->empty()) {
        return ComposedItemIdentifier(item.type, item.configuration.label);
    }
    const ReadingAs rights(caller);
    if (!rights.ok()) {
        return std::nullopt;
    }
    if ((item.type & KSWItemTypeUserItem) != 0) {
        return identifierOfUserItem(*item.url);
    }
    if (!isJob || !item.url->isFileURL()) {
        return std::nullopt;
    }
    std::optional<std::string> label = LabelForStewardPlist(item.url->absoluteURL());
    const bool isUsable = label && !label->empty() && label->size() <= limits::kFieldMax;
    return isUsable ? ComposedItemIdentifier(item.type, label) : std::nullopt;
}

ItemPointer recordOf(const LaunchItem& item, const std::string& identifier, FileDates dates, const Caller& caller) {
    ItemPointer record = bareItem(item.type, identifier);
    record->setUrl(item.url);
    record->setName(nameOf(item.configuration));
    record->setExecutablePath(item.configuration.executablePath);
    record->setProgramArguments(item.configuration.arguments);
    record->setSha256(item.configuration.sha256);
    if (dates == FileDates::Read) {
        readFileDates(*record, caller);
    }
    return record;
}

void readFileDates(KSWItem& record, const Caller& caller) {
    const ReadingAs rights(caller);
    if (!rights.ok()) {
        return;
    }
    record.setModificationDate(dateOf(pathOf(record.url())));
    record.setExecutableModificationDate(dateOf(executableOf(record)));
}

}  // namespace ksw::daemon
