// bus_message.h: messages of the session's message bus as bytes: calls are written, answers are read. Does no I/O.
// Any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <kestrelwood/values/data.h>

#include "platform/base/result.h"

namespace ksw::host {

/// Values one after the other, each where its type wants to stand: little-endian numbers, texts with their length
/// in front and a zero byte behind.
class BusWriter {
public:
    void byte(std::uint8_t value) { bytes_.push_back(value); }
    void number(std::uint32_t value);
    /// A text, which has no zero byte; also the path of an object.
    void text(std::string_view value);
    void signature(std::string_view value);
    /// Zero bytes up to the next multiple.
    void align(std::size_t multiple);

    /// Begins an array whose elements stand at multiples of `elementAlignment`; `endArray` is told what this gives.
    std::size_t beginArray(std::size_t elementAlignment);
    void endArray(std::size_t begun);

    const Data& bytes() const { return bytes_; }

private:
    void put(std::size_t position, std::uint32_t value);

    Data bytes_;
};

/// A call of a method of an object. Borrows.
struct BusCall {
    std::string_view destination;
    std::string_view path;
    std::string_view interface;
    std::string_view member;
    std::string_view signature{};  ///< Of the body; empty without one.
    Bytes body{};
};

/// The message; `serial` is not 0.
Data encodeBusCall(const BusCall& call, std::uint32_t serial);

enum class BusMessageKind : std::uint8_t { Call = 1, Return = 2, Error = 3, Signal = 4 };

/// What a message says that concerns a caller.
struct BusMessage {
    BusMessageKind kind = BusMessageKind::Signal;
    std::uint32_t replySerial = 0;               ///< The call that it answers; 0: none.
    std::string errorName;                       ///< Of an error.
    std::optional<std::uint32_t> firstNumber{};  ///< What the body begins with: a number, or a structure's bool.
};

/// Bytes of a message that say how long it is.
inline constexpr std::size_t kBusHeadSize = 16;

/// The length of the message that begins with these kBusHeadSize bytes, which are in it. Error: ReplyInvalid for
/// what is no message, or one larger than limits::kBusMessageMax.
Result<std::size_t> busMessageSize(Bytes head);

/// Reads a whole message. Error: ReplyInvalid.
Result<BusMessage> readBusMessage(Bytes message);

}  // namespace ksw::host
