// KSWFetchResult.h: what the management daemon found.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <vector>

#include <kestrelwood/KSWItem.h>
#include <kestrelwood/export.h>
#include <kestrelwood/values/data.h>

namespace ksw {
struct FetchResultFields;
struct FetchResultAccess;
}  // namespace ksw

/// A result code and the items found, each with its whole chain of containers. Only the code and an archive for
/// each chain travel; items and containers are made from the archives again on arrival.
///
/// Items and containers are handed out as pointers that own their whole chain: as long as a caller holds an item,
/// the item's container, that one's container and so on live, with or without the result. An item set by a setter
/// is handed out as it was given. One thread at a time may write a result.
class KSW_EXPORT KSWFetchResult {
public:
    /// Items in the order of the answer.
    using Items = std::vector<std::shared_ptr<KSWItem>>;

    /// A result with nothing in it: what decoding starts from.
    KSWFetchResult();
    ~KSWFetchResult();
    KSWFetchResult(const KSWFetchResult&) = delete;
    KSWFetchResult& operator=(const KSWFetchResult&) = delete;

    /// A result with these items, or with this one; a null item is left out.
    /// Never null. An item that cannot be archived is logged and does not travel. At most 16 containers of an item
    /// come along.
    static std::shared_ptr<KSWFetchResult> initWithCode(std::int64_t code, const Items& items);
    static std::shared_ptr<KSWFetchResult> resultWithCode(std::int64_t code, const Items& items);
    static std::shared_ptr<KSWFetchResult> resultWithCode(std::int64_t code, const std::shared_ptr<KSWItem>& item);
    static std::shared_ptr<KSWFetchResult> resultWithCode(std::int64_t code,
                                                          std::initializer_list<std::shared_ptr<KSWItem>> items) {
        return resultWithCode(code, Items(items));
    }

    /// The result code (KSWErrors.h).
    std::int64_t code() const;
    void setCode(std::int64_t code);
    /// The items found, in their order.
    const Items& items() const;
    void setItems(Items items);
    /// The containers of all items in the order met, the outermost of each last; shared ones occur repeatedly.
    const Items& containers() const;
    void setContainers(Items containers);
    /// What travels: the archive of each item's chain.
    const std::vector<ksw::Data>& encodedItems() const;
    void setEncodedItems(std::vector<ksw::Data> encodedItems);

    /// The first of the items; null when there is none.
    std::shared_ptr<KSWItem> firstItem() const;

private:
    friend struct ksw::FetchResultAccess;

    std::unique_ptr<ksw::FetchResultFields> fields_;
};
