#include "platform/facts/verified_files.h"

namespace ksw::facts {

std::optional<Verified> VerifiedFiles::find(const VerifiedState& state, std::int64_t time) {
    auto content = content_.lock();
    const auto place = content->places.find(keyOf(state));
    if (place == content->places.end()) {
        return std::nullopt;
    }
    const auto entry = place->second;
    if (!(entry->state == state) || !entry->verified.validity.holds(time)) {
        content->entries.erase(entry);
        content->places.erase(place);
        return std::nullopt;
    }
    content->entries.splice(content->entries.begin(), content->entries, entry);
    return entry->verified;
}

void VerifiedFiles::remember(const VerifiedState& state, const Verified& verified) {
    auto content = content_.lock();
    const Key key = keyOf(state);
    if (const auto place = content->places.find(key); place != content->places.end()) {
        content->entries.erase(place->second);
        content->places.erase(place);
    }
    if (content->entries.size() == countMax_) {
        content->places.erase(keyOf(content->entries.back().state));
        content->entries.pop_back();
    }
    content->entries.push_front({state, verified});
    content->places.emplace(key, content->entries.begin());
}

std::size_t VerifiedFiles::size() {
    return content_.lock()->entries.size();
}

}  // namespace ksw::facts
