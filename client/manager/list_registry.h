// list_registry.h: the lists that a manager keeps current, without keeping them alive.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include <kestrelwood/KSWList.h>

#include "platform/host/fork_guarded.h"

namespace ksw::client {

/// Weak links to lists. Any thread. Its lock is held for no longer than it takes to add one or to look who lives.
class ListRegistry {
public:
    using Lists = std::vector<std::shared_ptr<KSWList>>;

    /// Keeps a link to the list; `log` runs under the lock, so that lines stand in the order of the entries.
    template <class Log>
    void add(const std::shared_ptr<KSWList>& list, Log&& log) {
        const auto entries = entries_.lock();
        log();
        if (entries->links.size() >= entries->sweepAt) {
            std::erase_if(entries->links, [](const Link& link) { return link.expired(); });
            entries->sweepAt = std::max(kSweepMin, 2 * entries->links.size());
        }
        entries->links.push_back(list);
    }

    /// The lists that are alive, oldest first.
    Lists living() {
        Lists lists;
        const auto entries = entries_.lock();
        lists.reserve(entries->links.size());
        std::erase_if(entries->links, [&lists](const Link& link) {
            std::shared_ptr<KSWList> list = link.lock();
            const bool isDead = list == nullptr;
            if (!isDead) {
                lists.push_back(std::move(list));
            }
            return isDead;
        });
        return lists;
    }

private:
    using Link = std::weak_ptr<KSWList>;
    static constexpr std::size_t kSweepMin = 64;

    struct Entries {
        std::vector<Link> links;
        /// Dead links are looked for when there are so many: twice as many as lived the last time.
        std::size_t sweepAt = kSweepMin;
    };

    host::ForkGuarded<Entries> entries_;
};

}  // namespace ksw::client
