// KSWLoginItem.h: an application or file that opens when its user logs in.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>

#include <kestrelwood/KSWTypes.h>
#include <kestrelwood/export.h>
#include <kestrelwood/values/data.h>
#include <kestrelwood/values/uuid.h>

namespace ksw {
struct LoginItemFields;
struct LoginItemAccess;
}  // namespace ksw

/// A login item as its user sees it: a bookmark and whether it opens hidden. The per-user agent and the user
/// interface exchange these. One thread at a time may write one.
class KSW_EXPORT KSWLoginItem {
public:
    using Bookmark = std::optional<ksw::Data>;

    /// An item with nothing in it: what decoding starts from.
    KSWLoginItem();
    ~KSWLoginItem();
    KSWLoginItem(const KSWLoginItem&) = delete;
    KSWLoginItem& operator=(const KSWLoginItem&) = delete;

    /// New items. An item's identity is never taken from the caller: `identifier` is ignored and a random one
    /// stored.
    static std::shared_ptr<KSWLoginItem> initWithType(KSWItemType type, const std::optional<ksw::UUID>& identifier,
                                                      Bookmark bookmark, bool hidden = false);
    /// A new item of type 0 with a random identifier.
    static std::shared_ptr<KSWLoginItem> initWithBookmark(Bookmark bookmark, bool hidden);

    bool hidden() const;
    void setHidden(bool hidden);
    /// Absent only in an item that arrived without one.
    const std::optional<ksw::UUID>& identifier() const;
    const Bookmark& bookmark() const;
    /// The bookmark of the installer that added the item.
    const Bookmark& installerBookmark() const;
    void setInstallerBookmark(Bookmark bookmark);
    KSWItemType type() const;

    /// The same object, or bookmarks equal byte for byte and the same hidden flag.
    bool isIdenticalToLoginItem(const KSWLoginItem* other) const;
    bool isIdenticalToLoginItem(const std::shared_ptr<const KSWLoginItem>& other) const {
        return isIdenticalToLoginItem(other.get());
    }
    /// 0 for every item: which items are equal is a matter of the files that their bookmarks find, and no hash of a
    /// field would agree with that.
    std::size_t hash() const { return 0; }

private:
    friend struct ksw::LoginItemAccess;

    std::unique_ptr<ksw::LoginItemFields> fields_;
};
