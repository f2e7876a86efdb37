// list_cache.h: the archives of users' items, kept until the items change, since to encode ten thousand of them
// costs more than all the rest of a request.
#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <optional>

#include "servers/kestrelwoodd/record_index.h"

namespace ksw::daemon {

/// Makes the archives of lists, and remembers those asked for last. Any thread. A list is encoded by one thread at
/// a time; others that want the same one wait for it.
class ListCache {
public:
    /// Never changes; present. In the form in which a reply takes it.
    using Archive = std::shared_ptr<const std::optional<Data>>;

    static constexpr std::size_t kListsMax = 16;
    static constexpr std::size_t kBytesMax = std::size_t{64} * 1024 * 1024;

    /// `records` is borrowed. At most so many lists, and bytes of them, are remembered.
    explicit ListCache(const RecordIndex& records, std::size_t listsMax = kListsMax,
                       std::size_t bytesMax = kBytesMax)
        : records_(records), listsMax_(listsMax), bytesMax_(bytesMax) {}

    /// The user's items that match the mask, as they are now. Error: there are more than a list or a reply may
    /// hold, or they cannot be encoded.
    Result<Archive> listOf(Uid uid, std::int64_t mask);
    /// Remembers the user's lists no longer.
    void forget(Uid uid);

private:
    struct Slot {
        Slot(Uid ofUid, std::int64_t ofMask) : uid(ofUid), mask(ofMask) {}

        const Uid uid;
        const std::int64_t mask;
        std::mutex
            encoding;  // guards version and archive; held by the thread that encodes, and no other lock with it
        ListVersion version;
        Archive archive;
        std::size_t size = 0;  // of the archive; guarded by mutex_
    };

    std::shared_ptr<Slot> slotOf(Uid uid, std::int64_t mask);
    void remember(Slot& slot, std::size_t size);

    const RecordIndex& records_;
    const std::size_t listsMax_;
    const std::size_t bytesMax_;
    std::mutex mutex_;
    std::list<std::shared_ptr<Slot>> slots_;  // the one asked for last in front; guarded by mutex_
};

}  // namespace ksw::daemon
