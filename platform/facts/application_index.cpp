#include "platform/facts/application_index.h"

#include <algorithm>
#include <cerrno>
#include <deque>
#include <optional>
#include <utility>

#include <sys/sysmacros.h>

#include "platform/host/bundles.h"
#include "platform/host/log.h"
#include "platform/host/sys.h"

namespace ksw::facts {

namespace {

/// A file's times are as exact as the kernel's tick; what has changed so lately may do so again unseen.
constexpr std::int64_t kSettlingNanoseconds = 100'000'000;
constexpr std::int64_t kSecond = 1'000'000'000;

std::int64_t nanosecondsOf(const statx_timestamp& time) {
    return time.tv_sec * kSecond + time.tv_nsec;
}

std::int64_t unixNanoseconds(const Date& date) {
    return static_cast<std::int64_t>(date.secondsSinceReference * 1e9) + kReferenceDateUnixSeconds * kSecond;
}

std::ptrdiff_t depthOf(const std::string& path) {
    return std::count(path.begin(), path.end(), '/');
}

}  // namespace

/// Walks through one folder of applications and what is in it, without recursion.
class ApplicationSearch {
public:
    ApplicationSearch(ApplicationIndex& index, const host::Clock& clock, const ApplicationLimits& limits)
        : index_(index), now_(unixNanoseconds(clock.wall())), left_(limits), depthMax_(limits.depth) {}

    void run(const std::string& folder) {
        waiting_.push_back({folder, 1});
        while (!waiting_.empty() && !isOver_) {
            const Folder next = std::move(waiting_.front());
            waiting_.pop_front();
            lookInto(next);
        }
    }

private:
    struct Folder {
        std::string path;
        std::size_t depth;  // of what is in it
    };

    void lookInto(const Folder& folder) {
        watch(folder.path);
        Result<UniqueFd> open = openOwnedFolder(folder.path, index_.places_.owners);
        if (!open) {
            note(folder.path, open.error());
            return;
        }
        for (const std::string& name : namesIn(std::move(*open), folder.path)) {
            if (host::bundleExtension(name) == host::kApplicationExtension) {
                read(folder.path + "/" + name);
            } else if (folder.depth < depthMax_ && !name.starts_with('.')) {
                addFolder({folder.path + "/" + name, folder.depth + 1});
            }
            if (isOver_) {
                return;
            }
        }
    }

    /// None when there are more than may be read.
    std::vector<std::string> namesIn(UniqueFd open, const std::string& path) {
        std::vector<std::string> names;
        Result<host::sys::FolderEntries> entries = host::sys::FolderEntries::adopt(std::move(open), path);
        while (entries) {
            Result<std::optional<std::string>> name = entries->next();
            if (!name || !*name) {
                break;
            }
            if (left_.entries == 0) {
                stop(path, "too many directory entries");
                return {};
            }
            --left_.entries;
            names.push_back(std::move(**name));
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    void addFolder(Folder folder) {
        const auto facts = host::sys::statx(folder.path, AT_SYMLINK_NOFOLLOW, STATX_TYPE);
        if (facts && S_ISDIR(facts->stx_mode)) {
            waiting_.push_back(std::move(folder));
        }
    }

    void read(const std::string& path) {
        if (left_.applications == 0) {
            stop(path, "too many applications");
            return;
        }
        --left_.applications;
        // A file that comes changes the time of its folder.
        for (const char* part : {"", "/Contents", "/Contents/Info.plist", "/Contents/Linux"}) {
            watch(path + part);
        }
        Result<ReadApplication> read = readApplication(path, index_.places_.owners);
        if (!read) {
            note(path, read.error());
            return;
        }
        if (read->bytes > left_.bytes) {
            stop(path, "too large information property lists");
            return;
        }
        left_.bytes -= read->bytes;
        index_.applications_.push_back(std::move(read->application));
    }

    void watch(const std::string& path) {
        const ApplicationIndex::State state = ApplicationIndex::stateOf(path);
        const bool isSettled = std::max(state.modified, state.changed) < now_ - kSettlingNanoseconds;
        index_.watched_.push_back({path, state, isSettled});
    }

    static void note(const std::string& path, const Error& error) {
        if (host::sys::isErrno(error, EPERM)) {
            host::mainLog.info("Applications in %{public}@ do not count: others may write it", path);
        }
    }

    void stop(const std::string& path, std::string_view reason) {
        host::mainLog.error("Applications from %{public}@ on are left out: %s", path, Literal{reason});
        isOver_ = true;
    }

    ApplicationIndex& index_;
    const std::int64_t now_;
    ApplicationLimits left_;
    const std::size_t depthMax_;
    std::deque<Folder> waiting_;
    bool isOver_ = false;
};

std::shared_ptr<const ApplicationIndex> ApplicationIndex::make(const ApplicationPlaces& places,
                                                               const host::Clock& clock,
                                                               const ApplicationLimits& limits) {
    const std::shared_ptr<ApplicationIndex> index(new ApplicationIndex(places));
    for (const std::string& folder : places.folders) {
        const auto first = static_cast<std::ptrdiff_t>(index->applications_.size());
        ApplicationSearch(*index, clock, limits).run(folder);
        std::sort(index->applications_.begin() + first, index->applications_.end(),
                  [](const ApplicationPointer& left, const ApplicationPointer& right) {
                      return std::pair(depthOf(left->path), std::string_view(left->path)) <
                             std::pair(depthOf(right->path), std::string_view(right->path));
                  });
    }
    index->arrange();
    return index;
}

void ApplicationIndex::arrange() {
    named_.reserve(applications_.size());
    for (const ApplicationPointer& application : applications_) {
        Named& named = named_[application->identifier];
        ApplicationPointer& place = application->isPlaceholder ? named.placeholder : named.whole;
        if (place == nullptr) {
            place = application;
        }
    }
}

const ApplicationIndex::Named* ApplicationIndex::find(std::string_view identifier) const {
    const auto found = named_.find(identifier);
    return found == named_.end() ? nullptr : &found->second;
}

ApplicationIndex::State ApplicationIndex::stateOf(const std::string& path) {
    const auto facts = host::sys::statx(path, AT_SYMLINK_NOFOLLOW, STATX_INO | STATX_MTIME | STATX_CTIME);
    if (!facts) {
        return {};
    }
    return {makedev(facts->stx_dev_major, facts->stx_dev_minor), facts->stx_ino, nanosecondsOf(facts->stx_mtime),
            nanosecondsOf(facts->stx_ctime)};
}

bool ApplicationIndex::isCurrent() const {
    return std::all_of(watched_.begin(), watched_.end(), [](const Watched& watched) {
        return watched.isSettled && stateOf(watched.path) == watched.state;
    });
}

}  // namespace ksw::facts
