// application_index.h: the applications in some folders, as they were at one time, and whether they still are.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/base/limits.h"
#include "platform/facts/application.h"
#include "platform/host/clock.h"

namespace ksw::facts {

/// How much is read of a folder of applications with all that is in it.
struct ApplicationLimits {
    std::size_t depth = limits::kApplicationDepthMax;
    std::size_t entries = limits::kApplicationEntriesMax;
    std::size_t applications = limits::kApplicationsMax;
    std::size_t bytes = limits::kApplicationBytesMax;
};

/// Some folders of applications, the preferred one first, and whose files count in them.
struct ApplicationPlaces {
    std::vector<std::string> folders;
    Owners owners;

    friend bool operator==(const ApplicationPlaces&, const ApplicationPlaces&) = default;
};

/// Immutable; any thread.
class ApplicationIndex {
public:
    /// Reads the folders. What lies behind a symbolic link, in a folder whose name begins with ".", or in one that
    /// somebody else may write is not read. What cannot be read, and what is beyond a limit, is left out; only the
    /// latter, and what others may write, is logged. Blocks for the file system.
    static std::shared_ptr<const ApplicationIndex> make(const ApplicationPlaces& places, const host::Clock& clock,
                                                        const ApplicationLimits& limits = {});

    const ApplicationPlaces& places() const { return places_; }

    /// Those of one identifier in the order of preference: whole ones before placeholders, then as in `all`.
    struct Named {
        ApplicationPointer whole;        ///< Null when there are placeholders only.
        ApplicationPointer placeholder;  ///< Null when there is none.
    };
    /// Null when there is none.
    const Named* find(std::string_view identifier) const;

    /// In the order of their folders; in each, those less deep first, then by the bytes of their paths.
    const std::vector<ApplicationPointer>& all() const { return applications_; }

    /// Whether every folder and file that was read is as it was. Blocks for the file system.
    bool isCurrent() const;

private:
    friend class ApplicationSearch;

    /// What tells a file, and the state of it, from others. All zero: there is none.
    struct State {
        std::uint64_t device = 0;
        std::uint64_t inode = 0;
        std::int64_t modified = 0;  // nanoseconds since 1970, as the next
        std::int64_t changed = 0;

        friend bool operator==(const State&, const State&) = default;
    };
    struct Watched {
        std::string path;
        State state;
        bool isSettled;  // else it may change once more without any of its times telling
    };

    explicit ApplicationIndex(ApplicationPlaces places) : places_(std::move(places)) {}
    static State stateOf(const std::string& path);
    void arrange();

    ApplicationPlaces places_;
    std::vector<ApplicationPointer> applications_;
    std::unordered_map<std::string_view, Named> named_;  // the names are the applications'
    std::vector<Watched> watched_;
};

}  // namespace ksw::facts
