// method.h: one row of a wire contract. A row such as
//     inline constexpr Method<Reply<std::int64_t>(std::optional<URL>, Uid)> kLookUp{3, "lookUpURL:uid:reply:"};
// is all that the client's call, the server's dispatch, the check of arguments and the check of replies know of a
// method. Which types may stand in a row: wire_types.h and wire_objects.h.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <tuple>

namespace ksw::ipc {

/// The arguments of a reply, in order.
template <class... R>
struct Reply {};

/// How long a server may take before it answers an error itself; the seconds stand in platform/base/limits.h.
enum class Patience : std::uint8_t {
    LaunchQuestion,  ///< Something waits to be started: kLaunchQuestionSeconds.
    Ordinary,        ///< kRequestSeconds.
    Long,            ///< Verification, import, dump: kLongRequestSeconds.
    Unbounded,       ///< The answer comes when something happens, however long that takes.
};

/// The classes allowed in one argument of a reply, where they are fewer than its type allows. Names as in
/// `ServiceInterface`. Borrows static storage.
struct ReplyClasses {
    std::size_t argument;  ///< Index among the reply's arguments.
    std::span<const std::string_view> classes;
};

template <class Signature>
struct Method;

/// A method: its number in the contract's table, its whole selector, which is its name on the wire (at most
/// limits::kSelectorMax bytes), the allow-lists of its reply, and how long its answer may take.
template <class... R, class... A>
struct Method<Reply<R...>(A...)> {
    using Replies = std::tuple<R...>;
    using Arguments = std::tuple<A...>;

    int number;
    std::string_view selector;
    std::span<const ReplyClasses> replyClasses{};
    Patience patience = Patience::Ordinary;

    /// The same method as a row of another table.
    constexpr Method renumbered(int otherNumber) const {
        Method copy = *this;
        copy.number = otherNumber;
        return copy;
    }
};

}  // namespace ksw::ipc
