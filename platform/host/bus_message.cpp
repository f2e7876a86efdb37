#include "platform/host/bus_message.h"

#include <algorithm>

#include "platform/base/limits.h"

namespace ksw::host {

namespace {

constexpr std::uint8_t kVersion = 1;
constexpr std::size_t kHeaderAlignment = 8;
constexpr std::size_t kBodyLengthOffset = 4;
constexpr std::size_t kFieldsLengthOffset = 12;

/// What the header's fields are known by.
enum class Field : std::uint8_t {
    Path = 1,
    Interface = 2,
    Member = 3,
    ErrorName = 4,
    ReplySerial = 5,
    Destination = 6,
    Signature = 8,
};

Error invalid(std::string_view what) {
    return Error(ConnectionError::ReplyInvalid, what);
}

std::size_t aligned(std::size_t position, std::size_t multiple) {
    return (position + multiple - 1) / multiple * multiple;
}

void addField(BusWriter& writer, Field field, std::string_view type, std::string_view value) {
    if (value.empty()) {
        return;
    }
    writer.align(kHeaderAlignment);
    writer.byte(static_cast<std::uint8_t>(field));
    writer.signature(type);
    if (field == Field::Signature) {
        writer.signature(value);
    } else {
        writer.text(value);
    }
}

/// Reads values; what is not there makes all that follows absent.
class Reader {
public:
    Reader(Bytes bytes, bool isLittle) : bytes_(bytes), isLittle_(isLittle) {}

    void moveTo(std::size_t position) { position_ = position; }
    std::size_t position() const { return position_; }
    void align(std::size_t multiple) { position_ = aligned(position_, multiple); }

    std::optional<std::uint8_t> byte() {
        if (position_ >= bytes_.size()) {
            return std::nullopt;
        }
        return bytes_[position_++];
    }
    std::optional<std::uint32_t> number() {
        align(sizeof(std::uint32_t));
        if (position_ > bytes_.size() || bytes_.size() - position_ < sizeof(std::uint32_t)) {
            return std::nullopt;
        }
        std::uint32_t value = 0;
        for (std::size_t i = 0; i < sizeof value; ++i) {
            const std::size_t place = isLittle_ ? sizeof value - 1 - i : i;
            value = value << 8U | bytes_[position_ + place];
        }
        position_ += sizeof value;
        return value;
    }
    std::optional<std::string_view> text() {
        const std::optional<std::uint32_t> length = number();
        return length ? characters(*length) : std::nullopt;
    }
    std::optional<std::string_view> signature() {
        const std::optional<std::uint8_t> length = byte();
        return length ? characters(*length) : std::nullopt;
    }

private:
    /// So many and the zero byte behind them.
    std::optional<std::string_view> characters(std::size_t length) {
        if (position_ > bytes_.size() || bytes_.size() - position_ <= length || bytes_[position_ + length] != 0) {
            return std::nullopt;
        }
        const std::string_view found(reinterpret_cast<const char*>(bytes_.data()) + position_, length);
        position_ += length + 1;
        return found;
    }

    Bytes bytes_;
    bool isLittle_;
    std::size_t position_ = 0;
};

/// Reads one field of a header into the message; false for what is none.
bool readField(Reader& reader, BusMessage& message, std::string_view& bodySignature) {
    reader.align(kHeaderAlignment);
    const std::optional<std::uint8_t> field = reader.byte();
    const std::optional<std::string_view> type = reader.signature();
    if (!field || !type) {
        return false;
    }
    if (*type == "u") {
        const std::optional<std::uint32_t> value = reader.number();
        if (value && *field == static_cast<std::uint8_t>(Field::ReplySerial)) {
            message.replySerial = *value;
        }
        return value.has_value();
    }
    if (*type == "g") {
        const std::optional<std::string_view> value = reader.signature();
        bodySignature = value.value_or(std::string_view());
        return value.has_value();
    }
    const std::optional<std::string_view> value =
        *type == "s" || *type == "o" ? reader.text() : std::optional<std::string_view>();
    if (value && *field == static_cast<std::uint8_t>(Field::ErrorName)) {
        message.errorName = *value;
    }
    return value.has_value();
}

/// The lengths of a header's fields and of the body behind them.
struct Lengths {
    std::size_t fields;
    std::size_t body;

    std::size_t bodyBegin() const { return aligned(kBusHeadSize + fields, kHeaderAlignment); }
};

Result<Lengths> lengthsIn(Bytes head) {
    if (head.size() < kBusHeadSize || (head[0] != 'l' && head[0] != 'B') || head[3] != kVersion) {
        return invalid("no message of the bus");
    }
    Reader reader(head, head[0] == 'l');
    reader.moveTo(kBodyLengthOffset);
    const std::size_t body = reader.number().value_or(0);
    reader.moveTo(kFieldsLengthOffset);
    const std::size_t fields = reader.number().value_or(0);
    if (body > limits::kBusMessageMax || fields > limits::kBusMessageMax ||
        Lengths{fields, body}.bodyBegin() + body > limits::kBusMessageMax) {
        return invalid("a message of the bus that is too large");
    }
    return Lengths{fields, body};
}

}  // namespace

void BusWriter::put(std::size_t position, std::uint32_t value) {
    for (std::size_t i = 0; i < sizeof value; ++i) {
        bytes_[position + i] = static_cast<std::uint8_t>(value >> 8U * i);
    }
}

void BusWriter::number(std::uint32_t value) {
    align(sizeof value);
    bytes_.resize(bytes_.size() + sizeof value);
    put(bytes_.size() - sizeof value, value);
}

void BusWriter::text(std::string_view value) {
    number(static_cast<std::uint32_t>(value.size()));
    bytes_.insert(bytes_.end(), value.begin(), value.end());
    byte(0);
}

void BusWriter::signature(std::string_view value) {
    byte(static_cast<std::uint8_t>(value.size()));
    bytes_.insert(bytes_.end(), value.begin(), value.end());
    byte(0);
}

void BusWriter::align(std::size_t multiple) {
    bytes_.resize(aligned(bytes_.size(), multiple));
}

std::size_t BusWriter::beginArray(std::size_t elementAlignment) {
    number(0);
    const std::size_t length = bytes_.size() - sizeof(std::uint32_t);
    align(elementAlignment);
    // The length does not count what aligns the first element.
    put(length, static_cast<std::uint32_t>(bytes_.size()));
    return length;
}

void BusWriter::endArray(std::size_t begun) {
    Reader reader(bytes_, true);
    reader.moveTo(begun);
    put(begun, static_cast<std::uint32_t>(bytes_.size()) - reader.number().value_or(0));
}

Data encodeBusCall(const BusCall& call, std::uint32_t serial) {
    BusWriter writer;
    writer.byte('l');
    writer.byte(static_cast<std::uint8_t>(BusMessageKind::Call));
    writer.byte(0);
    writer.byte(kVersion);
    writer.number(static_cast<std::uint32_t>(call.body.size()));
    writer.number(serial);
    const std::size_t fields = writer.beginArray(kHeaderAlignment);
    addField(writer, Field::Path, "o", call.path);
    addField(writer, Field::Interface, "s", call.interface);
    addField(writer, Field::Member, "s", call.member);
    addField(writer, Field::Destination, "s", call.destination);
    addField(writer, Field::Signature, "g", call.signature);
    writer.endArray(fields);
    writer.align(kHeaderAlignment);
    Data message = writer.bytes();
    message.insert(message.end(), call.body.begin(), call.body.end());
    return message;
}

Result<std::size_t> busMessageSize(Bytes head) {
    const Result<Lengths> lengths = lengthsIn(head);
    return lengths ? Result<std::size_t>(lengths->bodyBegin() + lengths->body) : lengths.error();
}

Result<BusMessage> readBusMessage(Bytes message) {
    const Result<Lengths> lengths = lengthsIn(message);
    if (!lengths) {
        return lengths.error();
    }
    if (message.size() != lengths->bodyBegin() + lengths->body) {
        return invalid("a message of the bus that is not whole");
    }
    const std::uint8_t kind = message[1];
    if (kind < static_cast<std::uint8_t>(BusMessageKind::Call) ||
        kind > static_cast<std::uint8_t>(BusMessageKind::Signal)) {
        return invalid("a message of the bus of no known kind");
    }
    BusMessage read;
    read.kind = static_cast<BusMessageKind>(kind);
    const bool isLittle = message[0] == 'l';
    const std::size_t fieldsEnd = kBusHeadSize + lengths->fields;
    Reader reader(message.first(fieldsEnd), isLittle);
    reader.moveTo(kBusHeadSize);
    std::string_view signature;
    while (reader.position() < fieldsEnd) {
        if (!readField(reader, read, signature)) {
            return invalid("a message of the bus with a damaged header");
        }
    }
    if (signature.starts_with('u') || signature.starts_with("(b")) {
        read.firstNumber = Reader(message.subspan(lengths->bodyBegin()), isLittle).number();
    }
    return read;
}

}  // namespace ksw::host
