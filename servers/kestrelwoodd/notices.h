// notices.h: what a user is told about background items, in words, and together where it belongs together.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>

#include <kestrelwood/KSWItem.h>

#include "client/protocol/wire_arguments.h"
#include "platform/base/guarded.h"
#include "platform/base/result.h"
#include "platform/host/clock.h"
#include "platform/host/desktop.h"

namespace ksw::daemon {

using protocol::ItemPointer;
using protocol::MaybeString;
using protocol::MaybeURL;

/// How long notices about one container go together: a newer one takes the place of the former and tells of all.
inline constexpr std::chrono::nanoseconds kTogether = std::chrono::seconds(60);
/// Containers of which that is known, and the parent applications of a user.
inline constexpr std::size_t kContainersMax = 256;
inline constexpr std::size_t kParentAppsMax = 1'024;
/// Bytes of a name that something is known by, as many as a path has at most, and of all items that were told of
/// lately, some 29,000 UUIDs. An item beyond that is counted again each time.
inline constexpr std::size_t kKeyMax = 4'096;
inline constexpr std::size_t kItemKeysMax = 1024UL * 1024;

/// Any thread; one notice at a time.
///
/// What is about an item answers whether the desktop has shown it. What the desktop does not show goes into the
/// log, as a notice: "TITLE: TEXT". Null items tell nothing.
class Notices {
public:
    /// Shows a notice: its number.
    using Show = std::function<Result<std::uint32_t>(const host::DesktopNotice&)>;

    explicit Notices(Show show, const host::Clock& clock = host::systemClock())
        : show_(std::move(show)), clock_(clock) {}

    /// That what belongs to the container may start by itself.
    bool adviseOfContainer(const ItemPointer& container);
    /// That the item may start by itself, and whose it is.
    bool adviseOfItem(const ItemPointer& item, const ItemPointer& container);
    bool adviseOfItemOfApp(const ItemPointer& item, const MaybeURL& appURL);
    /// That the item waits for the user's decision. Never goes together with others.
    bool alertOfItem(const ItemPointer& item, const ItemPointer& container);
    /// That the container has so many items and extensions of these kinds which may start by themselves. Takes the
    /// place of what was told of them.
    bool adviseOfMany(const ItemPointer& item, const ItemPointer& container, std::int64_t backgroundCount,
                      std::int64_t extensionsCount, std::int64_t types);

    /// Remembers the application that encloses the path, by which an item in it is told of when it comes without a
    /// container. Whether there is one.
    bool registerParentApps(const MaybeString& path);

private:
    /// Whom a notice is about: what it goes together by, and how it is called.
    struct Owner {
        std::string key;
        std::string name;  ///< Empty when nobody knows.
    };
    /// What was told of one owner lately.
    struct Told {
        std::uint32_t number = 0;  ///< The desktop's.
        std::set<std::string> items;
        std::size_t bytes = 0;  ///< Of `items`.
        std::int64_t background = 0;
        std::int64_t extensions = 0;
        KSWItemType types = 0;
        std::chrono::nanoseconds at{};
    };
    struct State {
        std::map<std::string, Told, std::less<>> told;
        std::set<std::string> parentApps;
    };

    static Owner ownerOf(const KSWItem& container);
    Owner ownerOf(const KSWItem& item, const ItemPointer& container);
    Told& toldOf(State& state, const std::string& key) const;
    /// Whether the item is new to those told of.
    static bool remember(const State& state, Told& told, const KSWItem& item);
    bool advise(const KSWItem& item, const Owner& owner);
    bool tell(host::DesktopNotice notice, Told* told) const;

    const Show show_;
    const host::Clock& clock_;
    Guarded<State> state_;  // held while a notice is shown
};

}  // namespace ksw::daemon
