// What the file system says of an item's files: where they are now, their names, whether they changed.
#include <kestrelwood/KSWAdditions.h>
#include <kestrelwood/KSWItem.h>

#include "model/item/item_fields.h"
#include "platform/base/limits.h"
#include "platform/base/never_destroyed.h"
#include "platform/facts/file_inside.h"
#include "platform/facts/localized_text.h"
#include "platform/host/file_facts.h"

using ksw::URL;
using OptionalURL = std::optional<URL>;
using OptionalString = KSWItem::OptionalString;

namespace {

OptionalURL resolvedBookmark(KSWItem& item) {
    bool isStale = false;
    OptionalURL url;
    if (item.bookmark()) {
        constexpr std::uint64_t options =
            ksw::kBookmarkResolutionWithoutUI | ksw::kBookmarkResolutionWithoutMounting;
        url = __ksw_resolveBookmarkWithOptions(*item.bookmark(), options, std::nullopt, &isStale);
    }
    item.setIsResolvedURLStale(isStale);
    return url;
}

/// The file of an item's URL, inside `folder` when the URL is relative.
OptionalURL fileBelow(const OptionalURL& url, const OptionalURL& folder) {
    if (!url || (!url->scheme().empty() && !url->isFileURL())) {
        return std::nullopt;
    }
    const std::string path = url->relativePath();
    if (path.starts_with('/')) {
        return URL::fileURL(path);
    }
    return folder ? ksw::facts::fileInside(*folder, path) : std::nullopt;
}

/// `steps`: how many parents were gone up already; they may lead round in a circle.
OptionalURL resolved(KSWItem& item, std::size_t steps) {
    if (item.intersectsType(KSWItemTypeUserItem | KSWItemTypeApp)) {
        return resolvedBookmark(item);
    }
    if (item.isLegacy()) {
        return std::nullopt;
    }
    const KSWItem::Pointer parent = steps < ksw::limits::kContainerChainMax ? item.container() : nullptr;
    const OptionalURL folder = parent != nullptr ? resolved(*parent, steps + 1) : std::nullopt;
    OptionalURL url = fileBelow(item.url(), folder);
    item.setIsResolvedURLStale(url && parent != nullptr && parent->isResolvedURLStale());
    return url;
}

/// What stands for the name of the developer whom nobody knows. It stays the same as long as the process lives.
const std::string& nameOfUnknownDeveloper() {
    static ksw::NeverDestroyed<const std::string> name(
        ksw::facts::localizedText(ksw::kUnknownDeveloper, "Localizable"));
    return *name;
}

OptionalURL fileAt(const OptionalString& path) {
    return path ? OptionalURL(URL::fileURL(*path)) : std::nullopt;
}

/// The file that a person knows the item by.
OptionalURL shownFile(const KSWItem& item) {
    if (item.intersectsType(KSWItemTypeUserItem | KSWItemTypeApp) && item.url()) {
        return item.url();
    }
    if (item.isLegacy() && item.executablePath()) {
        return fileAt(item.executablePath());
    }
    return fileAt(item.fullPath());
}

/// When the file was changed, in seconds of the reference date; absent when that cannot be read, and for a path
/// that leads elsewhere in every process.
std::optional<double> dateOf(const OptionalURL& url) {
    if (!url || !url->isFileURL()) {
        return std::nullopt;
    }
    const ksw::Result<ksw::host::FileFacts> facts = ksw::host::fileFacts(url->path());
    return facts ? std::optional(facts->contentModificationDate.secondsSinceReference) : std::nullopt;
}

}  // namespace

OptionalURL KSWItem::resolvedURL() {
    return resolved(*this, 0);
}

OptionalString KSWItem::localizedName() const {
    if (isUnknownDeveloperRecord()) {
        return nameOfUnknownDeveloper();
    }
    const OptionalURL file = shownFile(*this);
    OptionalString name = file ? __ksw_localizedName(*file) : std::nullopt;
    return name ? name : fields_->name;
}

// Any difference is a change: no tolerance, since a date travels and is stored whole.
bool KSWItem::modificationDateMatchesFileSystem() const {
    return dateOf(fields_->url) == fields_->modificationDate;
}

bool KSWItem::executableModificationDateMatchesFileSystem() const {
    return dateOf(fileAt(fields_->executablePath)) == fields_->executableModificationDate;
}

void KSWItem::_setExecutableModificationDateFromURL(const URL& url) {
    fields_->executableModificationDate = dateOf(url).value_or(fields_->executableModificationDate);
}
