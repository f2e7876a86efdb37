#include <kestrelwood/KSWLoginItem.h>

#include <string_view>

#include <kestrelwood/KSWAdditions.h>

#include "agent/values/item_bookmark.h"
#include "agent/values/login_item_archive.h"
#include "platform/archive/class_table.h"
#include "platform/base/text.h"
#include "platform/facts/bookmark_blob.h"

namespace ksw {

struct LoginItemFields {
    bool hidden = false;
    std::optional<UUID> identifier;
    KSWLoginItem::Bookmark bookmark;
    KSWLoginItem::Bookmark installerBookmark;
    KSWItemType type = 0;
    // What the bookmark says of its file, read once: items of a set are compared with one another, all with all.
    // The bookmark stays as it is for as long as the item is there.
    std::optional<facts::FileRecord> file;
    std::string_view url;  ///< Borrowed from the bookmark; empty for one of a file.

    void readBookmark();
};

struct LoginItemAccess {
    static LoginItemFields& fields(KSWLoginItem& item) { return *item.fields_; }
};

}  // namespace ksw

using ksw::LoginItemAccess;
using ksw::LoginItemFields;

namespace {

using ksw::archive::field;

constexpr auto kFields = ksw::archive::fieldTable(
    field<&LoginItemFields::identifier>("identifier"), field<&LoginItemFields::bookmark>("bookmark"),
    field<&LoginItemFields::installerBookmark>("installerBookmark"), field<&LoginItemFields::type>("type"),
    ksw::archive::numericFlag<&LoginItemFields::hidden>("hidden"));

ksw::Status finishDecoding(KSWLoginItem& item, const ksw::archive::FinishContext& /*context*/) {
    LoginItemFields& fields = LoginItemAccess::fields(item);
    if (fields.type == 0) {
        fields.type = KSWItemTypeUserItem;
    }
    fields.readBookmark();
    return {};
}

constexpr std::int64_t kNotImplemented = -4;

constexpr ksw::archive::ClassInfo kClass =
    ksw::archive::describeClass<KSWLoginItem, &LoginItemAccess::fields, &finishDecoding>("KSWLoginItem", kFields);

}  // namespace

void LoginItemFields::readBookmark() {
    const auto content = bookmark ? ksw::facts::readBookmark(*bookmark)
                                  : ksw::Result<ksw::facts::BookmarkContent>(ksw::facts::BookmarkContent());
    if (content) {
        file = content->file;
        url = content->url;
    }
}

const ksw::archive::ClassInfo& archiveClass(const KSWLoginItem* /*item*/) {
    return kClass;
}

KSWLoginItem::KSWLoginItem() : fields_(std::make_unique<LoginItemFields>()) {}

KSWLoginItem::~KSWLoginItem() = default;

std::shared_ptr<KSWLoginItem> KSWLoginItem::initWithURL(const std::optional<ksw::URL>& url, bool hidden) {
    return initWithType(0, ksw::UUID::random(), ksw::agent::bookmarkForItem(url), hidden);
}

std::shared_ptr<KSWLoginItem> KSWLoginItem::initWithType(KSWItemType type,
                                                         const std::optional<ksw::UUID>& /*identifier*/,
                                                         Bookmark bookmark, bool hidden) {
    auto item = initWithBookmark(std::move(bookmark), hidden);
    item->fields_->type = type;
    return item;
}

std::shared_ptr<KSWLoginItem> KSWLoginItem::initWithBookmark(Bookmark bookmark, bool hidden) {
    auto item = std::make_shared<KSWLoginItem>();
    item->fields_->identifier = ksw::UUID::random();
    item->fields_->bookmark = std::move(bookmark);
    item->fields_->hidden = hidden;
    item->fields_->readBookmark();
    return item;
}

bool KSWLoginItem::hidden() const {
    return fields_->hidden;
}
void KSWLoginItem::setHidden(bool hidden) {
    fields_->hidden = hidden;
}
const std::optional<ksw::UUID>& KSWLoginItem::identifier() const {
    return fields_->identifier;
}
const KSWLoginItem::Bookmark& KSWLoginItem::bookmark() const {
    return fields_->bookmark;
}
const KSWLoginItem::Bookmark& KSWLoginItem::installerBookmark() const {
    return fields_->installerBookmark;
}
void KSWLoginItem::setInstallerBookmark(Bookmark bookmark) {
    fields_->installerBookmark = std::move(bookmark);
}
KSWItemType KSWLoginItem::type() const {
    return fields_->type;
}

std::optional<std::string> KSWLoginItem::name() const {
    return fields_->bookmark ? __ksw_displayName(*fields_->bookmark) : std::nullopt;
}

std::string KSWLoginItem::description() const {
    return ksw::format("<KSWLoginItem: %p> %@ hidden: %@", static_cast<const void*>(this), name(),
                       hidden() ? "YES" : "NO");
}

bool KSWLoginItem::isEqualToLoginItem(const KSWLoginItem* other) const {
    if (other == nullptr) {
        return false;
    }
    const LoginItemFields& theirs = *other->fields_;
    if (fields_->identifier && fields_->identifier == theirs.identifier) {
        return true;
    }
    // What __ksw_matchBookmark says of the two bookmarks at the level of the same file.
    if (fields_->file && theirs.file) {
        return ksw::facts::isSameFile(*fields_->file, *theirs.file);
    }
    return !fields_->url.empty() && fields_->url == theirs.url;
}

bool KSWLoginItem::isEqual(const KSWLoginItem* other) const {
    return other == this || isEqualToLoginItem(other);
}

bool KSWLoginItem::isIdenticalToLoginItem(const KSWLoginItem* other) const {
    return other == this || (other != nullptr && fields_->bookmark == other->fields_->bookmark &&
                             fields_->hidden == other->fields_->hidden);
}

void KSWLoginItem::getURLByResolvingBookmarkCompletion(const URLCompletion& completion) const {
    if (completion) {
        completion(std::nullopt, ksw::Error(ksw::kStatusErrorDomain, kNotImplemented));
    }
}
