#include "platform/archive/ownership.h"

#include <algorithm>

#include "platform/base/limits.h"

namespace ksw::archive {

namespace {

enum class Visit : std::uint8_t { NotYet, Open, Done };

/// A depth-first walk over the links, sorted by owner.
class Walk {
public:
    Walk(std::size_t objectCount, const std::vector<OwningLink>& links)
        : begin_(objectCount + 1), links_(links.size()), visits_(objectCount), heights_(objectCount) {
        for (const OwningLink& link : links) {
            ++begin_[link.owner + 1];
        }
        for (std::size_t i = 1; i < begin_.size(); ++i) {
            begin_[i] += begin_[i - 1];
        }
        std::vector<std::uint32_t> next(begin_.begin(), begin_.end() - 1);
        for (const OwningLink& link : links) {
            links_[next[link.owner]++] = link;
        }
    }

    /// False when a chain is too long.
    bool from(std::uint32_t object) {
        if (visits_[object] == Visit::NotYet) {
            open(object);
        }
        while (!open_.empty()) {
            const std::uint32_t owner = open_.back().object;
            if (open_.back().next == begin_[owner + 1]) {
                open_.pop_back();
                visits_[owner] = Visit::Done;
                raise(owner);
            } else if (!follow(owner, links_[open_.back().next++])) {
                return false;
            }
        }
        return true;
    }

    std::vector<std::uint32_t> takeClosing() { return std::move(closing_); }

private:
    struct Position {
        std::uint32_t object;
        std::uint32_t next;
    };

    void open(std::uint32_t object) {
        visits_[object] = Visit::Open;
        open_.push_back({object, begin_[object]});
    }

    bool follow(std::uint32_t owner, const OwningLink& link) {
        if (visits_[link.owned] == Visit::Open) {
            closing_.push_back(link.label);
            return true;
        }
        if (visits_[link.owned] == Visit::NotYet) {
            open(link.owned);
            return open_.size() <= limits::kDepthMax;
        }
        heights_[owner] = std::max(heights_[owner], static_cast<std::uint8_t>(heights_[link.owned] + 1));
        return open_.size() + heights_[owner] <= limits::kDepthMax;
    }

    /// The object's height has been found: its owner in the walk stands one higher.
    void raise(std::uint32_t object) {
        if (!open_.empty()) {
            std::uint8_t& height = heights_[open_.back().object];
            height = std::max(height, static_cast<std::uint8_t>(heights_[object] + 1));
        }
    }

    std::vector<std::uint32_t> begin_;
    std::vector<OwningLink> links_;
    std::vector<Visit> visits_;
    std::vector<std::uint8_t> heights_;
    std::vector<Position> open_;
    std::vector<std::uint32_t> closing_;
};

}  // namespace

std::optional<std::vector<std::uint32_t>> closingLinks(std::size_t objectCount,
                                                       const std::vector<OwningLink>& links) {
    Walk walk(objectCount, links);
    for (std::uint32_t object = 0; object < objectCount; ++object) {
        if (!walk.from(object)) {
            return std::nullopt;
        }
    }
    return walk.takeClosing();
}

}  // namespace ksw::archive
