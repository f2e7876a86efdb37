// KSWLoginItem.h: an application or file that opens when its user logs in.
#pragma once

#include <concepts>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <kestrelwood/KSWTypes.h>
#include <kestrelwood/export.h>
#include <kestrelwood/values/data.h>
#include <kestrelwood/values/error.h>
#include <kestrelwood/values/url.h>
#include <kestrelwood/values/uuid.h>

namespace ksw {
struct LoginItemFields;
struct LoginItemAccess;
}  // namespace ksw

/// A login item as its user sees it: a bookmark and whether it opens hidden. The per-user agent and the user
/// interface exchange these. Any number of threads may read one; while one writes it, no other may use it.
class KSW_EXPORT KSWLoginItem {
public:
    /// The bytes that find a file again (KSWAdditions.h), absent for an item that has none, and what is called with
    /// the file that they lead to or with why they lead to none.
    using Bookmark = std::optional<ksw::Data>;
    using URLCompletion = std::function<void(std::optional<ksw::URL> url, std::optional<ksw::Error> error)>;

    /// An item with nothing in it: what decoding starts from.
    KSWLoginItem();
    ~KSWLoginItem();
    KSWLoginItem(const KSWLoginItem&) = delete;
    KSWLoginItem& operator=(const KSWLoginItem&) = delete;

    /// A new item of type 0 for the file at the URL; blocks for looking at the file. Where no bookmark can be made
    /// of it, the item has none, and the log says why. Never null.
    static std::shared_ptr<KSWLoginItem> initWithURL(const std::optional<ksw::URL>& url, bool hidden = false);
    /// New items. An item's identity is never taken from the caller: `identifier` is ignored and a random one
    /// stored.
    static std::shared_ptr<KSWLoginItem> initWithType(KSWItemType type, const std::optional<ksw::UUID>& identifier,
                                                      Bookmark bookmark, bool hidden = false);
    /// A new item of type 0 with a random identifier.
    static std::shared_ptr<KSWLoginItem> initWithBookmark(Bookmark bookmark, bool hidden);

    /// Whether it is opened out of sight.
    bool hidden() const;
    void setHidden(bool hidden);
    /// Absent only in an item that arrived without one.
    const std::optional<ksw::UUID>& identifier() const;
    const Bookmark& bookmark() const;
    /// The bookmark of the installer that added the item.
    const Bookmark& installerBookmark() const;
    void setInstallerBookmark(Bookmark bookmark);
    KSWItemType type() const;
    /// The name of the item's file for people; absent when its bookmark has none to show.
    std::optional<std::string> name() const;
    /// One line for messages.
    std::string description() const;

    /// Whether the other has the same identifier, or a bookmark of the same file. Two items without identifier, or
    /// without bookmark, are not the same for that. Looks at no file: what the bookmarks say decides.
    bool isEqualToLoginItem(const KSWLoginItem* other) const;
    bool isEqualToLoginItem(const std::shared_ptr<const KSWLoginItem>& other) const {
        return isEqualToLoginItem(other.get());
    }
    /// The same object, or one that `isEqualToLoginItem` says is equal; nothing of another class is.
    bool isEqual(const KSWLoginItem* other) const;
    bool isEqual(const KSWLoginItem& other) const { return isEqual(&other); }
    template <class Other>
    bool isEqual(const std::shared_ptr<Other>& other) const {
        if constexpr (std::convertible_to<Other*, const KSWLoginItem*>) {
            return isEqual(static_cast<const KSWLoginItem*>(other.get()));
        } else {
            return false;
        }
    }

    /// The same object, or bookmarks equal byte for byte and the same hidden flag.
    bool isIdenticalToLoginItem(const KSWLoginItem* other) const;
    bool isIdenticalToLoginItem(const std::shared_ptr<const KSWLoginItem>& other) const {
        return isIdenticalToLoginItem(other.get());
    }
    /// 0 for every item: which items are equal is a matter of the files that their bookmarks find, and no hash of a
    /// field would agree with that.
    std::size_t hash() const { return 0; }

    /// Nobody resolves a login item here: answers at once, on the caller's thread, no URL and code -4 of
    /// `ksw::kStatusErrorDomain`. Resolve the bookmark itself (KSWAdditions.h).
    void getURLByResolvingBookmarkCompletion(const URLCompletion& completion) const;

private:
    friend struct ksw::LoginItemAccess;

    std::unique_ptr<ksw::LoginItemFields> fields_;
};
