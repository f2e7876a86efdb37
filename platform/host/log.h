// log.h: the unified log. A line has a level, a category, a text with arguments, and the activity it was
// written in. It goes to the host's journal; on a host without one, errors and faults go to standard error.
//
// Values that are not public by the text's own rules ("%{public}@", numbers, literals given for "%s") are
// written `<private>`. From the environment, read at the first line:
//   KESTRELWOOD_LOG=debug       every level is on and goes to standard error as well;
//   KESTRELWOOD_LOG_PRIVATE=1   private values are shown.
// Otherwise: with a journal, info and above are on; without, errors and faults.
//
// Any thread may log at any time, and no failure to write a line reaches the caller. A line whose level is
// off costs one load and formats nothing. Arguments are borrowed for the call.
#pragma once

#include <atomic>
#include <cstdint>
#include <span>
#include <string_view>
#include <utility>

#include "platform/base/text.h"

namespace ksw::host {

/// The program family that every line belongs to.
inline constexpr std::string_view kLogSubsystem = "com.velmont.kestrelwood";

enum class LogLevel : std::uint8_t { Debug, Info, Notice, Error, Fault };

/// The levels that are on, a bit each, in the order of `LogLevel`. All are on until the first line has read
/// the environment. For `Log` and the sinks.
inline constinit std::atomic<std::uint32_t> logLevelsOn{~0U};

/// A category to log under. Levels: `notice` is the default one; `fault` is a bug of this system.
class Log {
public:
    /// `category` must live as long as the process: a literal.
    explicit constexpr Log(std::string_view category) : category_(category) {}

    constexpr std::string_view category() const { return category_; }

    static bool isOn(LogLevel level) {
        return ((logLevelsOn.load(std::memory_order_relaxed) >> static_cast<unsigned>(level)) & 1U) != 0;
    }

    template <class... Arguments>
    void debug(std::string_view text, Arguments&&... arguments) const {
        write(LogLevel::Debug, text, std::forward<Arguments>(arguments)...);
    }
    template <class... Arguments>
    void info(std::string_view text, Arguments&&... arguments) const {
        write(LogLevel::Info, text, std::forward<Arguments>(arguments)...);
    }
    template <class... Arguments>
    void notice(std::string_view text, Arguments&&... arguments) const {
        write(LogLevel::Notice, text, std::forward<Arguments>(arguments)...);
    }
    template <class... Arguments>
    void error(std::string_view text, Arguments&&... arguments) const {
        write(LogLevel::Error, text, std::forward<Arguments>(arguments)...);
    }
    template <class... Arguments>
    void fault(std::string_view text, Arguments&&... arguments) const {
        write(LogLevel::Fault, text, std::forward<Arguments>(arguments)...);
    }

    /// Writes a line at a level that is known only at run time.
    template <class... Arguments>
    void write(LogLevel level, std::string_view text, Arguments&&... arguments) const {
        if (isOn(level)) {
            emitLine(level, text, std::forward<Arguments>(arguments)...);
        }
    }

private:
    template <class... Arguments>
    [[gnu::noinline, gnu::cold]] void emitLine(LogLevel level, std::string_view text,
                                               Arguments&&... arguments) const {
        if constexpr (sizeof...(Arguments) == 0) {
            emitArguments(level, text, {});
        } else {
            const TextArgument list[] = {textArgument(std::forward<Arguments>(arguments))...};
            emitArguments(level, text, list);
        }
    }
    /// Keeps errno as it was.
    void emitArguments(LogLevel level, std::string_view text,
                       std::span<const TextArgument> arguments) const noexcept;

    std::string_view category_;
};

/// The framework's own category, and that of the legacy login items' import.
inline constexpr Log mainLog{"main"};
inline constexpr Log importLog{"import"};

}  // namespace ksw::host
