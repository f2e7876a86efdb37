#include <kestrelwood/KSWFunctions.h>

#include "platform/base/limits.h"
#include "platform/facts/bookmark.h"
#include "platform/host/file_facts.h"
#include "servers/kestrelwoodd/launch_item.h"
#include "servers/kestrelwoodd/reading_as.h"

namespace ksw::daemon {

namespace {

std::optional<std::string> pathOf(const std::optional<URL>& url) {
    return url && url->isFileURL() ? std::optional(url->path()) : std::nullopt;
}

/// As for everybody, but what is no file has to say what kind of URL it is, so that it cannot pass for the
/// identifier of another kind of item.
std::optional<std::string> identifierOfUserItem(const URL& url) {
    return url.scheme().empty() ? std::nullopt : ItemIdentifierForURLAndType(KSWItemTypeUserItem, url);
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

Dictionary namesIn(const Configuration& configuration) {
    Dictionary names;
    if (configuration.executablePath) {
        names.emplace(KSWConfigExecutablePath, *configuration.executablePath);
    }
    if (configuration.label) {
        names.emplace(KSWConfigLabel, *configuration.label);
    }
    return names;
}

std::optional<std::string> nameOf(const LaunchItem& item, const Caller& caller) {
    const ReadingAs rights(caller);
    if (!rights.ok()) {
        return std::nullopt;
    }
    return isJob(item.type) ? ItemNameForStewardPlist(namesIn(item.configuration)) : ItemNameForURL(*item.url);
}

std::optional<std::string> labelIn(const URL& file) {
    std::optional<std::string> label = file.isFileURL() ? LabelForStewardPlist(file.absoluteURL()) : std::nullopt;
    const bool isUsable = label && !label->empty() && label->size() <= limits::kFieldMax;
    return isUsable ? label : std::nullopt;
}

/// A user item and an application are found by their bookmark after they were moved. While there is no file the
/// bookmark stays that can tell where it went.
void readBookmark(KSWItem& record) {
    if (!record.intersectsType(KSWItemTypeUserItem | KSWItemTypeApp) || !record.url()) {
        return;
    }
    Result<Data> bookmark = facts::makeBookmark(*record.url(), facts::kBookmarkWithoutImplicitScope);
    if (bookmark) {
        record.setBookmark(*std::move(bookmark));
    }
}

void readPlaces(KSWItem& record, const Caller& caller) {
    const ReadingAs rights(caller);
    if (!rights.ok()) {
        return;
    }
    record.setModificationDate(dateOf(pathOf(record.url())));
    record.setExecutableModificationDate(dateOf(executableOf(record)));
    readBookmark(record);
}

}  // namespace

std::optional<std::string> codeOf(const KSWItem& record) {
    const std::optional<std::string> path = isJob(record.type()) ? executableOf(record) : pathOf(record.url());
    return path && path->starts_with('/') ? path : std::nullopt;
}

std::optional<std::string> identify(LaunchItem& item, const Caller& caller) {
    const bool isUserItem = (item.type & KSWItemTypeUserItem) != 0;
    if (!isUserItem && !isJob(item.type)) {
        item.maker = makerOf(pathOf(item.url), caller);
        return ComposedItemIdentifier(item.type, item.maker->signingIdentifier);
    }
    if (!isUserItem && item.configuration.label && !item.configuration.label->empty()) {
        return ComposedItemIdentifier(item.type, item.configuration.label);
    }
    const ReadingAs rights(caller);
    if (!rights.ok()) {
        return std::nullopt;
    }
    return isUserItem ? identifierOfUserItem(*item.url) : ComposedItemIdentifier(item.type, labelIn(*item.url));
}

ItemPointer recordOf(const LaunchItem& item, const std::string& identifier, FileDates dates, const Caller& caller) {
    ItemPointer record = bareItem(item.type, identifier);
    record->setUrl(item.url);
    record->setName(nameOf(item, caller));
    record->setExecutablePath(item.configuration.executablePath);
    record->setProgramArguments(item.configuration.arguments);
    record->setSha256(item.configuration.sha256);
    if (dates == FileDates::Read) {
        readPlaces(*record, caller);
    }
    if (item.maker) {
        takeMaker(*record, *item.maker);
    } else {
        readMaker(*record, caller);
    }
    return record;
}

void readFiles(KSWItem& record, const Caller& caller) {
    readPlaces(record, caller);
    readMaker(record, caller);
}

void readMaker(KSWItem& record, const Caller& caller) {
    takeMaker(record, makerOf(codeOf(record), caller));
}

}  // namespace ksw::daemon
