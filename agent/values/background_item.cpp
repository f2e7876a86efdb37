#include <kestrelwood/KSWBackgroundItem.h>

#include <kestrelwood/KSWAdditions.h>

#include "agent/values/background_item_archive.h"
#include "agent/values/item_bookmark.h"
#include "platform/archive/class_table.h"
#include "platform/base/text.h"

namespace ksw {

struct BackgroundItemFields {
    std::optional<UUID> identifier;
    KSWBackgroundItem::Bookmark bookmark;
    std::int64_t userElection = 0;
    KSWItemType type = 0;
};

struct BackgroundItemAccess {
    static BackgroundItemFields& fields(KSWBackgroundItem& item) { return *item.fields_; }
};

}  // namespace ksw

using ksw::BackgroundItemAccess;
using ksw::BackgroundItemFields;

namespace {

using ksw::archive::field;

/// What a file is that somebody names by its URL alone.
constexpr KSWItemType kTypeOfURL = KSWItemTypeUserItem | KSWItemTypeApp;

constexpr auto kFields = ksw::archive::fieldTable(
    field<&BackgroundItemFields::identifier>("identifier"), field<&BackgroundItemFields::bookmark>("bookmark"),
    field<&BackgroundItemFields::userElection>("userElection"), field<&BackgroundItemFields::type>("type"));

constexpr ksw::archive::ClassInfo kClass =
    ksw::archive::describeClass<KSWBackgroundItem, &BackgroundItemAccess::fields>("KSWBackgroundItem", kFields);

}  // namespace

const ksw::archive::ClassInfo& archiveClass(const KSWBackgroundItem* /*item*/) {
    return kClass;
}

KSWBackgroundItem::KSWBackgroundItem() : fields_(std::make_unique<BackgroundItemFields>()) {}

KSWBackgroundItem::~KSWBackgroundItem() = default;

std::shared_ptr<KSWBackgroundItem> KSWBackgroundItem::initWithURL(const std::optional<ksw::URL>& url) {
    return initWithIdentifier(ksw::UUID::random(), kTypeOfURL, ksw::agent::bookmarkForItem(url), 0);
}

std::shared_ptr<KSWBackgroundItem> KSWBackgroundItem::initWithType(KSWItemType type, Bookmark bookmark) {
    return initWithIdentifier(ksw::UUID::random(), type, std::move(bookmark), 0);
}

std::shared_ptr<KSWBackgroundItem> KSWBackgroundItem::initWithIdentifier(std::optional<ksw::UUID> identifier,
                                                                         KSWItemType type, Bookmark bookmark,
                                                                         std::int64_t userElection) {
    auto item = std::make_shared<KSWBackgroundItem>();
    item->setIdentifier(identifier);
    item->setType(type);
    item->setBookmark(std::move(bookmark));
    item->setUserElection(userElection);
    return item;
}

const std::optional<ksw::UUID>& KSWBackgroundItem::identifier() const {
    return fields_->identifier;
}
void KSWBackgroundItem::setIdentifier(std::optional<ksw::UUID> identifier) {
    fields_->identifier = identifier;
}
const KSWBackgroundItem::Bookmark& KSWBackgroundItem::bookmark() const {
    return fields_->bookmark;
}
void KSWBackgroundItem::setBookmark(Bookmark bookmark) {
    fields_->bookmark = std::move(bookmark);
}
std::int64_t KSWBackgroundItem::userElection() const {
    return fields_->userElection;
}
void KSWBackgroundItem::setUserElection(std::int64_t userElection) {
    fields_->userElection = userElection;
}
KSWItemType KSWBackgroundItem::type() const {
    return fields_->type;
}
void KSWBackgroundItem::setType(KSWItemType type) {
    fields_->type = type;
}

std::optional<std::string> KSWBackgroundItem::name() const {
    return fields_->bookmark ? __ksw_displayName(*fields_->bookmark) : std::nullopt;
}

std::string KSWBackgroundItem::description() const {
    return ksw::format("<KSWBackgroundItem: %p>", static_cast<const void*>(this));
}
