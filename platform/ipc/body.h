// body.h: what stands in a frame's body: requests, replies and refusals.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include <kestrelwood/values.h>

#include "platform/base/result.h"
#include "platform/ipc/call.h"
#include "platform/ipc/method.h"
#include "platform/ipc/wire_types.h"

namespace ksw::archive {
class Reader;
}  // namespace ksw::archive

namespace ksw::ipc {

/// The longest text of a refusal that is sent or believed, in bytes.
inline constexpr std::size_t kRefusalTextMax = 1024;

// Each writes a whole frame but for its header: `frame` gets room for the header and the body behind it, and keeps
// its allocation. Error: an argument that has no form, from the argument's own domain; or LimitPassed.

Status encodeRequest(std::string_view selector, std::span<const ArgumentSource> arguments, Data& frame);
Status encodeReply(std::span<const ArgumentSource> arguments, Data& frame);
/// `text` is cut to kRefusalTextMax bytes and to what is UTF-8.
Status encodeRefusal(std::int64_t code, std::string_view text, Data& frame);

/// Reads the array of arguments that the reader stands before. Error: what does not fit, with its index.
Status decodeArguments(archive::Reader& reader, std::span<const ArgumentPlace> places,
                       std::span<const ReplyClasses> classes);
/// Reads the body of a reply. Error: ReplyInvalid.
Status decodeReplyBody(Bytes body, std::span<const ArgumentPlace> places, std::span<const ReplyClasses> classes);

/// How a call ended: the body of its reply, which lives as long as the call is not used again, or why there is
/// none.
Result<Bytes> bodyOf(const Call& call);

/// ReplyInvalid: there was no memory for the reply. Made on first use, so that it costs none when it is needed.
const Error& noMemoryError();

}  // namespace ksw::ipc
