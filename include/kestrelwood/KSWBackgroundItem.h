// KSWBackgroundItem.h: an item that runs in the background, and what its user decided about it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <kestrelwood/KSWTypes.h>
#include <kestrelwood/export.h>
#include <kestrelwood/values/data.h>
#include <kestrelwood/values/string_constant.h>
#include <kestrelwood/values/url.h>
#include <kestrelwood/values/uuid.h>

// What a user decides about a background item: its election.
inline constexpr std::int64_t KSWUserElectionNone = 0;
inline constexpr std::int64_t KSWUserElectionAllowed = 1;
inline constexpr std::int64_t KSWUserElectionDisallowed = 2;

namespace ksw {
struct BackgroundItemFields;
struct BackgroundItemAccess;
}  // namespace ksw

/// The name of the distributed notification by which the per-user agent announces, in its user's session, that
/// login items or background items changed.
inline constexpr ksw::StringConstant kKSWBackgroundItemsChangeNotification =
    "com.velmont.private.BackgroundItemsChangeNotification";

/// A background item as its user sees it. Two objects are never equal. The per-user agent and the user interface
/// exchange these. Any number of threads may read one; while one writes it, no other may use it.
class KSW_EXPORT KSWBackgroundItem {
public:
    /// The bytes that find a file again (KSWAdditions.h); absent for an item that has none.
    using Bookmark = std::optional<ksw::Data>;

    /// An item with nothing in it: what decoding starts from.
    KSWBackgroundItem();
    ~KSWBackgroundItem();
    KSWBackgroundItem(const KSWBackgroundItem&) = delete;
    KSWBackgroundItem& operator=(const KSWBackgroundItem&) = delete;

    /// A new item of type 3 for the file at the URL, with a random identifier and election 0; blocks for looking at
    /// the file. Where no bookmark can be made of it, the item has none, and the log says why. Never null.
    static std::shared_ptr<KSWBackgroundItem> initWithURL(const std::optional<ksw::URL>& url);
    /// A new item with a random identifier and election 0.
    static std::shared_ptr<KSWBackgroundItem> initWithType(KSWItemType type, Bookmark bookmark);
    static std::shared_ptr<KSWBackgroundItem> initWithIdentifier(std::optional<ksw::UUID> identifier,
                                                                 KSWItemType type, Bookmark bookmark,
                                                                 std::int64_t userElection);

    /// The agent knows the item by it.
    const std::optional<ksw::UUID>& identifier() const;
    void setIdentifier(std::optional<ksw::UUID> identifier);
    const Bookmark& bookmark() const;
    void setBookmark(Bookmark bookmark);
    /// What the user decided, as the agent says it: allowed or disallowed; none in a new item.
    std::int64_t userElection() const;
    void setUserElection(std::int64_t userElection);
    KSWItemType type() const;
    void setType(KSWItemType type);
    /// The name of the item's file for people; absent when its bookmark has none to show.
    std::optional<std::string> name() const;
    /// One line for messages.
    std::string description() const;

    /// Whether the other is this object.
    bool isEqual(const KSWBackgroundItem* other) const { return other == this; }
    bool isEqual(const std::shared_ptr<const KSWBackgroundItem>& other) const { return other.get() == this; }
    std::size_t hash() const { return std::hash<const KSWBackgroundItem*>{}(this); }

private:
    friend struct ksw::BackgroundItemAccess;

    std::unique_ptr<ksw::BackgroundItemFields> fields_;
};
