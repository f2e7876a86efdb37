#include "platform/ipc/body.h"

#include <array>
#include <new>
#include <string>

#include "platform/archive/cbor_reader.h"
#include "platform/archive/cbor_writer.h"
#include "platform/base/never_destroyed.h"
#include "platform/base/text.h"
#include "platform/ipc/connection.h"
#include "platform/ipc/frame.h"

namespace ksw::ipc {

namespace {

/// A writer that appends behind the room for a header, in the frame's own allocation.
archive::Writer beginFrame(Data& frame) {
    frame.resize(kHeaderSize);
    return archive::Writer(std::move(frame));
}

Status endFrame(archive::Writer& writer, Data& frame) {
    Result<Data> written = writer.take();
    if (!written) {
        return written.error();
    }
    frame = std::move(*written);
    if (frame.size() - kHeaderSize > limits::kFrameBodyMax) {
        return Error(FormatError::LimitPassed, format("frame: a body of %ld bytes, at most %ld are allowed",
                                                      frame.size() - kHeaderSize, limits::kFrameBodyMax));
    }
    return {};
}

Status encodeArguments(std::span<const ArgumentSource> arguments, archive::Writer& writer) {
    writer.array(arguments.size());
    for (const ArgumentSource& argument : arguments) {
        if (Status status = argument.encode(writer, argument.value); !status) {
            return status;
        }
    }
    return {};
}

const AllowedClasses* classesOf(std::span<const ReplyClasses> classes, std::size_t argument) {
    for (const ReplyClasses& entry : classes) {
        if (entry.argument == argument) {
            return &entry.classes;
        }
    }
    return nullptr;
}

/// The longest beginning of the text that a reader takes: UTF-8 and not too long.
std::string readableText(std::string_view text) {
    std::string readable;
    for (char c : text.substr(0, kRefusalTextMax)) {
        const auto byte = static_cast<unsigned char>(c);
        readable.push_back(byte >= 0x20 && byte < 0x7F ? c : '?');
    }
    return readable;
}

/// A refusal as the error that the caller gets; one that cannot be read is an invalid reply.
Error refusalError(Bytes body) {
    archive::DecodeBudget budget(body.size());
    archive::Reader reader(body, budget);
    std::size_t count = 0;
    std::int64_t code = 0;
    std::string text;
    if (!reader.enterArray(count) || count != 2 || !reader.integer(code) || !reader.text(text, kRefusalTextMax)) {
        return Error(ConnectionError::ReplyInvalid, "a refusal that is not [code, text]");
    }
    reader.leave();
    if (!reader.end()) {
        return Error(ConnectionError::ReplyInvalid, "a refusal with something behind it");
    }
    return Error(
        kConnectionErrorDomain, static_cast<std::int64_t>(ConnectionError::Refused),
        {{std::string(kLocalizedDescriptionKey), Value(text)}, {std::string(kRefusalCodeKey), Value(code)}});
}

}  // namespace

Status encodeRequest(std::string_view selector, std::span<const ArgumentSource> arguments, Data& frame) {
    archive::Writer writer = beginFrame(frame);
    writer.array(std::size_t{2});
    writer.text(selector);
    if (Status status = encodeArguments(arguments, writer); !status) {
        return status;
    }
    return endFrame(writer, frame);
}

Status encodeReply(std::span<const ArgumentSource> arguments, Data& frame) {
    archive::Writer writer = beginFrame(frame);
    if (Status status = encodeArguments(arguments, writer); !status) {
        return status;
    }
    return endFrame(writer, frame);
}

Status encodeRefusal(std::int64_t code, std::string_view text, Data& frame) {
    archive::Writer writer = beginFrame(frame);
    writer.array(std::size_t{2});
    writer.integer(code);
    writer.text(readableText(text));
    return endFrame(writer, frame);
}

Status decodeArguments(archive::Reader& reader, std::span<const ArgumentPlace> places,
                       std::span<const ReplyClasses> classes) {
    std::size_t count = 0;
    if (!reader.enterArray(count)) {
        return reader.error("arguments");
    }
    if (count != places.size()) {
        return Error(FormatError::WrongType, format("arguments: %ld given, %ld expected", count, places.size()));
    }
    for (std::size_t index = 0; index < count; ++index) {
        const Status status = places[index].decode(reader, classesOf(classes, index), places[index].value);
        if (!status) {
            return Error(status.error().domain(), status.error().code(),
                         format("argument %ld: %@", index, status.error().localizedDescription()));
        }
    }
    reader.leave();
    return {};
}

Status decodeReplyBody(Bytes body, std::span<const ArgumentPlace> places,
                       std::span<const ReplyClasses> classes) try {
    archive::DecodeBudget budget(body.size());
    archive::Reader reader(body, budget);
    if (Status status = decodeArguments(reader, places, classes); !status) {
        return Error(ConnectionError::ReplyInvalid, status.error().localizedDescription());
    }
    if (!reader.end()) {
        return Error(ConnectionError::ReplyInvalid, reader.error("reply").localizedDescription());
    }
    return {};
} catch (const std::bad_alloc&) {
    return noMemoryError();
}

Result<Bytes> bodyOf(const Call& call) try {
    if (call.error) {
        return *call.error;
    }
    if (call.hasNoMemory) {
        return noMemoryError();
    }
    if (call.kind == FrameKind::Refusal) {
        return refusalError(call.reply);
    }
    return Bytes(call.reply);
} catch (const std::bad_alloc&) {
    return noMemoryError();
}

const Error& noMemoryError() {
    static NeverDestroyed<Error> error(ConnectionError::ReplyInvalid, "no memory for the reply");
    return *error;
}

}  // namespace ksw::ipc
