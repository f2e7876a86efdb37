// KSWBackgroundItem.h: an item that runs in the background, and what its user decided about it.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include <kestrelwood/KSWTypes.h>
#include <kestrelwood/export.h>
#include <kestrelwood/values/data.h>
#include <kestrelwood/values/uuid.h>

namespace ksw {
struct BackgroundItemFields;
struct BackgroundItemAccess;
}  // namespace ksw

/// A background item as its user sees it. Two objects are never equal. The per-user agent and the user interface
/// exchange these. One thread at a time may write one.
class KSW_EXPORT KSWBackgroundItem {
public:
    using Bookmark = std::optional<ksw::Data>;

    /// An item with nothing in it: what decoding starts from.
    KSWBackgroundItem();
    ~KSWBackgroundItem();
    KSWBackgroundItem(const KSWBackgroundItem&) = delete;
    KSWBackgroundItem& operator=(const KSWBackgroundItem&) = delete;

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
    /// The user's choice; what its values mean is the agent's to say.
    std::int64_t userElection() const;
    void setUserElection(std::int64_t userElection);
    KSWItemType type() const;
    void setType(KSWItemType type);

private:
    friend struct ksw::BackgroundItemAccess;

    std::unique_ptr<ksw::BackgroundItemFields> fields_;
};
