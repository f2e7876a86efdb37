#include "platform/facts/verified_files.h"

#include <iterator>

namespace ksw::facts {

void VerifiedFiles::Content::forget(std::list<Entry>::iterator entry) {
    bytes -= entry->verified.size;
    places.erase(keyOf(entry->state));
    entries.erase(entry);
}

std::optional<Verified> VerifiedFiles::find(const VerifiedState& state, std::int64_t time) {
    auto content = content_.lock();
    const auto place = content->places.find(keyOf(state));
    if (place == content->places.end()) {
        return std::nullopt;
    }
    const auto entry = place->second;
    if (!(entry->state == state) || !entry->verified.validity.holds(time)) {
        content->forget(entry);
        return std::nullopt;
    }
    content->entries.splice(content->entries.begin(), content->entries, entry);
    return entry->verified;
}

void VerifiedFiles::remember(const VerifiedState& state, const Verified& verified) {
    auto content = content_.lock();
    const Key key = keyOf(state);
    if (const auto place = content->places.find(key); place != content->places.end()) {
        content->forget(place->second);
    }
    if (verified.size > bytesMax_) {
        return;
    }
    while (content->entries.size() == countMax_ || content->bytes > bytesMax_ - verified.size) {
        content->forget(std::prev(content->entries.end()));
    }
    content->entries.push_front({state, verified});
    content->places.emplace(key, content->entries.begin());
    content->bytes += verified.size;
}

std::size_t VerifiedFiles::size() {
    return content_.lock()->entries.size();
}

}  // namespace ksw::facts
