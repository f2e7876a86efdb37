#include "platform/facts/application_registry.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "platform/base/limits.h"
#include "platform/base/never_destroyed.h"
#include "platform/facts/application_index.h"
#include "platform/host/file_facts.h"
#include "platform/host/file_rights.h"
#include "platform/host/home_folder.h"
#include "platform/host/host_root.h"

namespace ksw::facts {

namespace {

using std::chrono_literals::operator""ms;
using Time = std::chrono::nanoseconds;

constexpr std::string_view kEverybodysFolders[] = {"/Applications", "/opt", "/usr/local/Applications"};
constexpr std::string_view kUsersFolder = "/Applications";
/// How old an answer may be; and one that there is no such application, since one that was just installed is often
/// asked for.
constexpr Time kAgeMax = 1000ms;
constexpr Time kAgeOfMissMax = 50ms;
/// Looking takes at most one part in so many of a thread's time, however often the folders change.
constexpr int kShare = 10;

/// The folder as it is called without links; as it stands when it is not there.
std::string withoutLinks(std::string path) {
    Result<std::string> canonical = host::canonicalPath(path);
    return canonical ? std::move(*canonical) : std::move(path);
}

ApplicationPlaces placesOf(Uid uid) {
    const Uid administrator = host::hostRootOwner();
    if (uid == kEveryUser) {
        ApplicationPlaces places{{}, {administrator, administrator}};
        for (const std::string_view folder : kEverybodysFolders) {
            places.folders.push_back(withoutLinks(host::hostPath(folder)));
        }
        return places;
    }
    // The user could let the folder itself be a link to anywhere; the home folder is an administrator's to place.
    const std::optional<std::string> home = host::homeFolder(uid);
    ApplicationPlaces places{{}, {uid, administrator}};
    if (home) {
        places.folders.push_back(withoutLinks(*home).append(kUsersFolder));
    }
    return places;
}

}  // namespace

/// The applications of one user, or of everybody.
class ApplicationRegistry::Shelf {
public:
    explicit Shelf(Uid uid) : uid_(uid) {}

    /// What is on it, as it was at most `ageMax` ago.
    std::shared_ptr<const ApplicationIndex> index(const host::Clock& clock, Time ageMax) {
        auto content = content_.lock();
        // Not before: whoever waited for the lock has what was read meanwhile, and did not look himself.
        const Time now = clock.monotonic();
        if (content->index == nullptr || now >= content->lookedAt + std::max(ageMax, content->pause)) {
            look(*content, clock, now);
        }
        return content->index;
    }

private:
    struct Content {
        std::shared_ptr<const ApplicationIndex> index;
        Time lookedAt{};
        Time pause{};
    };

    void look(Content& content, const host::Clock& clock, Time now) const {
        const host::OwnRights own;
        const ApplicationPlaces places = placesOf(uid_);
        const bool isCurrent =
            content.index != nullptr && content.index->places() == places && content.index->isCurrent();
        if (!isCurrent) {
            content.index = ApplicationIndex::make(places, clock);
        }
        content.lookedAt = clock.monotonic();
        content.pause = kShare * (content.lookedAt - now);
    }

    const Uid uid_;
    host::ForkGuarded<Content> content_;
};

ApplicationRegistry& ApplicationRegistry::shared() {
    static NeverDestroyed<ApplicationRegistry> instance;
    return *instance;
}

ApplicationRegistry::ShelfPointer ApplicationRegistry::shelfOf(std::map<Uid, ShelfPointer>& shelves,
                                                               Uid uid) const {
    ShelfPointer& shelf = shelves[uid];
    if (shelf == nullptr) {
        shelf = std::make_shared<Shelf>(uid);
    }
    return shelf;
}

ApplicationRegistry::Shelves ApplicationRegistry::shelvesOf(Uid uid) {
    auto shelves = shelves_.lock();
    if (shelves->size() > limits::kApplicationUsersMax && !shelves->contains(uid)) {
        shelves->clear();
    }
    const bool isOneUser = uid != kEveryUser && uid != kNoUser;
    return {shelfOf(*shelves, kEveryUser), isOneUser ? shelfOf(*shelves, uid) : nullptr};
}

ApplicationPointer ApplicationRegistry::find(std::string_view identifier, Uid uid, Placeholders placeholders) {
    const Shelves shelves = shelvesOf(uid);
    ApplicationPointer placeholder;
    for (const Time ageMax : {kAgeMax, kAgeOfMissMax}) {
        for (const ShelfPointer& shelf : {shelves.everybodys, shelves.users}) {
            const auto index = shelf == nullptr ? nullptr : shelf->index(clock_, ageMax);
            const auto* named = index == nullptr ? nullptr : index->find(identifier);
            if (named != nullptr && named->whole != nullptr) {
                return named->whole;
            }
            if (named != nullptr && placeholder == nullptr) {
                placeholder = named->placeholder;
            }
        }
    }
    return placeholders == Placeholders::Included ? placeholder : nullptr;
}

std::vector<ApplicationPointer> ApplicationRegistry::all(Uid uid) {
    const Shelves shelves = shelvesOf(uid);
    std::vector<ApplicationPointer> all = shelves.everybodys->index(clock_, kAgeMax)->all();
    if (shelves.users != nullptr) {
        const auto index = shelves.users->index(clock_, kAgeMax);
        all.insert(all.end(), index->all().begin(), index->all().end());
    }
    return all;
}

}  // namespace ksw::facts
