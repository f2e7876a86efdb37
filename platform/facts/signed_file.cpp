#include "platform/facts/signed_file.h"

#include <algorithm>
#include <array>
#include <string>

#include "platform/archive/cbor_reader.h"
#include "platform/archive/cbor_writer.h"
#include "platform/base/base64.h"
#include "platform/base/hex.h"
#include "platform/base/limits.h"
#include "platform/facts/within_memory.h"
#include "platform/plist/xml_scalars.h"

namespace ksw::facts {

namespace {

constexpr std::string_view kMagic = "~Kestrelwood signature~\n";
constexpr std::size_t kLengthSize = 8;
static_assert(kLengthSize + kMagic.size() == kSignatureTailSize);

/// Around the text in a script. The line break in front is part of the signature, since a script may end without.
constexpr std::string_view kTextBefore = "\n# ";
constexpr std::string_view kTextBehind = " ";
constexpr std::size_t kTextAround = kTextBefore.size() + kTextBehind.size();
constexpr std::size_t kTextSizeMax = base64Size(limits::kSignatureMax) + kTextAround;

std::string_view textOf(Bytes bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

/// Eight bytes, the highest first; in a script eight hexadecimal digits. Both count what is stored before the tail.
std::optional<std::uint64_t> readLength(CodeKind kind, Bytes digits) {
    std::uint64_t length = 0;
    for (const std::uint8_t byte : digits) {
        if (kind != CodeKind::Script) {
            length = length << 8U | byte;
            continue;
        }
        const std::size_t digit = kLowerHexDigits.find(static_cast<char>(byte));
        if (digit == std::string_view::npos) {
            return std::nullopt;
        }
        length = length << 4U | digit;
    }
    return length;
}

void appendTail(Data& out, CodeKind kind, std::size_t length) {
    for (unsigned index = kLengthSize; index-- > 0;) {
        const bool isText = kind == CodeKind::Script;
        out.push_back(isText ? static_cast<std::uint8_t>(kLowerHexDigits[length >> (4U * index) & 0xFU])
                             : static_cast<std::uint8_t>(length >> (8U * index)));
    }
    out.insert(out.end(), kMagic.begin(), kMagic.end());
}

/// The bytes in a script's line. Absent when they are not written the one way.
std::optional<Data> bytesInText(Bytes stored) {
    std::string_view text = textOf(stored);
    if (text.size() < kTextAround || !text.starts_with(kTextBefore) || !text.ends_with(kTextBehind)) {
        return std::nullopt;
    }
    text = text.substr(kTextBefore.size(), text.size() - kTextAround);
    const plist::Parsed parsed = plist::parseData(text);
    const auto* value = std::get_if<Value>(&parsed);
    const Data* data = value == nullptr ? nullptr : value->as<Data>();
    if (data == nullptr || base64Size(data->size()) != text.size()) {
        return std::nullopt;
    }
    return *data;
}

Result<SignatureParts> decodeParts(Bytes bytes) {
    archive::DecodeBudget budget(bytes.size());
    archive::Reader reader(bytes, budget);
    SignatureParts parts;
    std::size_t count = 0;
    if (reader.enterArray(count) && count == 2 && reader.bytes(parts.directory, limits::kCodeDirectoryMax) &&
        (reader.nextIsNull() ? reader.null()
                             : reader.bytes(parts.message.emplace(), limits::kSignatureMessageMax))) {
        reader.leave();
        reader.end();
    } else {
        reader.fail(FormatError::Malformed, "two elements expected");
    }
    if (!reader.ok()) {
        return reader.error("signature");
    }
    return parts;
}

Result<Data> encode(CodeKind kind, const SignatureParts& parts) {
    if (parts.directory.size() > limits::kCodeDirectoryMax ||
        (parts.message && parts.message->size() > limits::kSignatureMessageMax)) {
        return Error(FormatError::LimitPassed, "signature: too many bytes");
    }
    archive::Writer writer;
    writer.array(2);
    writer.bytes(parts.directory);
    parts.message ? writer.bytes(*parts.message) : writer.null();
    Result<Data> bytes = writer.take();
    if (bytes && kind == CodeKind::Script) {
        std::string text(kTextBefore);
        appendBase64(text, *bytes);
        text += kTextBehind;
        bytes->assign(text.begin(), text.end());
    }
    if (bytes) {
        appendTail(*bytes, kind, bytes->size());
    }
    return bytes;
}

}  // namespace

CodeKind codeKindOf(Bytes head) {
    constexpr std::string_view kElfMagic =
        "\x7F"
        "ELF";
    const std::string_view text = textOf(head);
    if (text.starts_with(kElfMagic)) {
        return CodeKind::Elf;
    }
    return text.starts_with("#!") ? CodeKind::Script : CodeKind::Other;
}

std::string_view formatOf(CodeKind kind) {
    switch (kind) {
        case CodeKind::Elf:
            return "elf executable";
        case CodeKind::Script:
            return "generic script";
        default:
            return "generic file";
    }
}

Result<std::optional<SignaturePlace>> findSignature(CodeKind kind, Bytes tail, std::uint64_t fileSize) {
    if (tail.size() < kSignatureTailSize || !textOf(tail).ends_with(kMagic)) {
        return std::optional<SignaturePlace>();
    }
    const Bytes digits = tail.last(kSignatureTailSize).first(kLengthSize);
    const std::optional<std::uint64_t> length = readLength(kind, digits);
    const std::size_t lengthMax = kind == CodeKind::Script ? kTextSizeMax : limits::kSignatureMax;
    if (!length || *length > lengthMax) {
        return Error(FormatError::LimitPassed, "signature: the length in its tail is too large");
    }
    if (fileSize <= kSignatureTailSize || *length >= fileSize - kSignatureTailSize) {
        return Error(FormatError::Malformed, "signature: the length in its tail leaves no code");
    }
    SignaturePlace place;
    place.storedSize = static_cast<std::size_t>(*length);
    place.codeSize = fileSize - kSignatureTailSize - *length;
    return std::optional<SignaturePlace>(place);
}

Result<SignatureParts> decodeSignature(CodeKind kind, Bytes stored) {
    return withinMemory([&]() -> Result<SignatureParts> {
        if (kind != CodeKind::Script) {
            return decodeParts(stored);
        }
        const std::optional<Data> bytes = bytesInText(stored);
        if (!bytes) {
            return Error(FormatError::Malformed, "signature: not a line of base64");
        }
        return decodeParts(*bytes);
    });
}

Result<Data> encodeSignature(CodeKind kind, const SignatureParts& parts) {
    return withinMemory([&] { return encode(kind, parts); });
}

}  // namespace ksw::facts
