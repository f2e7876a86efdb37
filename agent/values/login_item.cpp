#include <kestrelwood/KSWLoginItem.h>

#include "agent/values/login_item_archive.h"
#include "platform/archive/class_table.h"

namespace ksw {

struct LoginItemFields {
    bool hidden = false;
    std::optional<UUID> identifier;
    KSWLoginItem::Bookmark bookmark;
    KSWLoginItem::Bookmark installerBookmark;
    KSWItemType type = 0;
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
    return {};
}

constexpr ksw::archive::ClassInfo kClass =
    ksw::archive::describeClass<KSWLoginItem, &LoginItemAccess::fields, &finishDecoding>("KSWLoginItem", kFields);

}  // namespace

const ksw::archive::ClassInfo& archiveClass(const KSWLoginItem* /*item*/) {
    return kClass;
}

KSWLoginItem::KSWLoginItem() : fields_(std::make_unique<LoginItemFields>()) {}

KSWLoginItem::~KSWLoginItem() = default;

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

bool KSWLoginItem::isIdenticalToLoginItem(const KSWLoginItem* other) const {
    return other == this || (other != nullptr && fields_->bookmark == other->fields_->bookmark &&
                             fields_->hidden == other->fields_->hidden);
}
