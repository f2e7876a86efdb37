#include "tests/support/scripted_bus.h"

#include <algorithm>
#include <filesystem>
#include <optional>
#include <stdexcept>

#include <unistd.h>

#include "platform/base/limits.h"
#include "platform/host/bus_message.h"
#include "platform/host/sys.h"

namespace ksw::test {

namespace {

namespace sys = host::sys;
using host::BusMessageKind;
using host::BusWriter;

constexpr std::uint8_t kReplySerialField = 5;

/// Reads the values of a call in this machine's order, where they stand.
class CallReader {
public:
    CallReader(const Data& message, std::size_t begin) : message_(message), begin_(begin), position_(begin) {}

    std::uint32_t number() {
        align(4);
        std::uint32_t value = 0;
        for (unsigned i = 0; i < 4; ++i) {
            value |= std::uint32_t{message_.at(position_++)} << 8U * i;
        }
        return value;
    }
    std::uint8_t byte() { return message_.at(position_++); }
    std::string text(std::size_t length) {
        std::string value;
        for (std::size_t i = 0; i < length; ++i) {
            value += static_cast<char>(byte());
        }
        (void)byte();
        return value;
    }
    std::string text() { return text(number()); }
    std::string signature() { return text(byte()); }
    void align(std::size_t multiple) {
        position_ = begin_ + (position_ - begin_ + multiple - 1) / multiple * multiple;
    }
    std::size_t position() const { return position_; }

private:
    const Data& message_;
    std::size_t begin_;
    std::size_t position_;
};

/// What a call's header says.
struct Call {
    std::uint32_t serial = 0;
    std::string member;
    std::string signature;
    std::size_t bodyBegin = 0;
};

Call readCall(const Data& message) {
    CallReader reader(message, 0);
    Call call;
    (void)reader.number();
    (void)reader.number();
    call.serial = reader.number();
    const std::size_t end = reader.number() + host::kBusHeadSize;
    while (reader.position() < end) {
        reader.align(8);
        const std::uint8_t field = reader.byte();
        const std::string type = reader.signature();
        const std::string value = type == "g" ? reader.signature() : reader.text();
        if (field == 3) {
            call.member = value;
        } else if (field == 8) {
            call.signature = value;
        }
    }
    call.bodyBegin = (end + 7) / 8 * 8;
    return call;
}

ShownNotice readNotice(const Data& message, const Call& call) {
    CallReader reader(message, call.bodyBegin);
    ShownNotice notice;
    notice.signature = call.signature;
    notice.application = reader.text();
    notice.replaces = reader.number();
    (void)reader.text();
    notice.summary = reader.text();
    notice.body = reader.text();
    if (reader.number() != 0) {
        throw std::runtime_error("actions");
    }
    const std::size_t hints = reader.number();
    reader.align(8);
    const std::size_t end = reader.position() + hints;
    if (reader.text() != "urgency" || reader.signature() != "y") {
        throw std::runtime_error("hints");
    }
    notice.urgency = reader.byte();
    if (reader.position() != end || reader.number() != 0xFFFFFFFFU || reader.position() != message.size()) {
        throw std::runtime_error("the end of a notice");
    }
    return notice;
}

AskedRight readQuestion(const Data& message, const Call& call) {
    CallReader reader(message, call.bodyBegin);
    AskedRight asked;
    asked.signature = call.signature;
    bool isWhole = reader.text() == "unix-process" && reader.number() != 0;
    const auto readFact = [&](std::string_view name, std::string_view type) {
        reader.align(8);
        const std::string found = reader.text();
        isWhole = isWhole && found == name && reader.signature() == type;
    };
    readFact("pid", "u");
    asked.pid = reader.number();
    readFact("start-time", "t");
    reader.align(8);
    asked.startTime = reader.number();
    asked.startTime |= std::uint64_t{reader.number()} << 32U;
    readFact("uid", "i");
    asked.uid = reader.number();
    asked.action = reader.text();
    isWhole = isWhole && reader.number() == 0;
    reader.align(8);
    isWhole = isWhole && reader.number() == 0 && reader.text().empty() && reader.position() == message.size();
    if (!isWhole) {
        throw std::runtime_error("a question");
    }
    return asked;
}

/// The answer whether somebody may do something.
Data verdictOf(std::uint32_t serial, bool isAuthorized) {
    BusWriter writer;
    writer.byte('l');
    writer.byte(static_cast<std::uint8_t>(BusMessageKind::Return));
    writer.byte(0);
    writer.byte(1);
    writer.number(16);
    writer.number(78);
    const std::size_t fields = writer.beginArray(8);
    writer.byte(kReplySerialField);
    writer.signature("u");
    writer.number(serial);
    writer.align(8);
    writer.byte(8);
    writer.signature("g");
    writer.signature("(bba{ss})");
    writer.endArray(fields);
    writer.align(8);
    writer.number(isAuthorized ? 1 : 0);
    writer.number(0);
    writer.number(0);
    writer.align(8);
    return writer.bytes();
}

/// A message to the client: an answer to `serial`, or what is none when that is 0; with a number or without.
Data messageOf(BusMessageKind kind, std::uint32_t serial, std::optional<std::uint32_t> number) {
    BusWriter writer;
    writer.byte('l');
    writer.byte(static_cast<std::uint8_t>(kind));
    writer.byte(0);
    writer.byte(1);
    writer.number(number ? 4 : 0);
    writer.number(77);
    const std::size_t fields = writer.beginArray(8);
    if (serial != 0) {
        writer.byte(kReplySerialField);
        writer.signature("u");
        writer.number(serial);
    }
    if (kind == BusMessageKind::Error) {
        writer.align(8);
        writer.byte(4);
        writer.signature("s");
        writer.text("org.freedesktop.DBus.Error.ServiceUnknown");
    }
    if (number) {
        writer.align(8);
        writer.byte(8);
        writer.signature("g");
        writer.signature("u");
    }
    writer.endArray(fields);
    writer.align(8);
    if (number) {
        writer.number(*number);
    }
    return writer.bytes();
}

/// The same answer as a machine of the other byte order writes it; at most 255 in any number.
Data inOtherOrder(std::uint32_t serial, std::uint32_t number) {
    const auto small = [](std::uint32_t value) { return static_cast<std::uint8_t>(value); };
    return {'B', 2, 0,   1, 0, 0,   0, 4, 0, 0, 0, 77,           0, 0, 0, 15, 5, 1, 'u', 0, 0, 0, 0, small(serial),
            8,   1, 'g', 0, 1, 'u', 0, 0, 0, 0, 0, small(number)};
}

}  // namespace

ScriptedBus::ScriptedBus(const std::string& path, BusBehaviour behaviour) : behaviour_(behaviour) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    Result<UniqueFd> listener = sys::socket(AF_UNIX, SOCK_STREAM);
    Result<UniqueFd> stop = sys::eventDescriptor();
    if (!listener || !stop || !sys::bindUnix(listener->get(), path) || !sys::listen(listener->get(), 16)) {
        throw std::runtime_error("no bus at " + path);
    }
    listener_ = std::move(*listener);
    stop_ = std::move(*stop);
    thread_ = std::thread([this] { serveAll(); });
}

ScriptedBus::~ScriptedBus() {
    (void)sys::signalEvent(stop_.get());
    thread_.join();
}

std::vector<ShownNotice> ScriptedBus::shown() const {
    const std::lock_guard lock(mutex_);
    return shown_;
}

std::vector<AskedRight> ScriptedBus::asked() const {
    const std::lock_guard lock(mutex_);
    return asked_;
}

int ScriptedBus::connections() const {
    const std::lock_guard lock(mutex_);
    return connections_;
}

/// False when the bus is to stop.
bool ScriptedBus::isReadable(int fd) const {
    pollfd waited[] = {{fd, POLLIN, 0}, {stop_.get(), POLLIN, 0}};
    (void)sys::poll(waited, std::nullopt);
    return waited[1].revents == 0;
}

void ScriptedBus::serveAll() {
    while (isReadable(listener_.get())) {
        Result<std::optional<UniqueFd>> accepted = sys::accept(listener_.get(), false);
        if (accepted && *accepted) {
            {
                const std::lock_guard lock(mutex_);
                ++connections_;
            }
            serve((*accepted)->get());
        }
    }
}

bool ScriptedBus::receive(int fd, Data& bytes, std::size_t size) const {
    while (bytes.size() < size) {
        if (!isReadable(fd)) {
            return false;
        }
        Data piece(size - bytes.size());
        const Result<sys::Transfer> received = sys::receive(fd, piece.data(), piece.size());
        if (!received || received->bytes == 0) {
            return false;
        }
        bytes.insert(bytes.end(), piece.begin(), piece.begin() + static_cast<std::ptrdiff_t>(received->bytes));
    }
    return true;
}

std::string ScriptedBus::receiveLine(int fd) const {
    Data line;
    while (line.empty() || line.back() != '\n') {
        if (!receive(fd, line, line.size() + 1)) {
            return "";
        }
    }
    return {line.begin(), line.end()};
}

bool ScriptedBus::send(int fd, const Data& bytes) const {
    const std::size_t most = behaviour_ == BusBehaviour::AnswersInPieces ? 1 : bytes.size();
    for (std::size_t done = 0; done < bytes.size();) {
        const Result<sys::Transfer> sent = sys::send(fd, bytes.data() + done, std::min(most, bytes.size() - done));
        if (!sent) {
            return false;
        }
        done += sent->bytes;
    }
    return true;
}

/// Until the client has gone, or the bus is to stop.
bool ScriptedBus::waitForEnd(int fd) const {
    Data ignored;
    while (receive(fd, ignored, ignored.size() + 1)) {
    }
    return false;
}

void ScriptedBus::serve(int fd) {
    if (behaviour_ == BusBehaviour::NeverGreets) {
        (void)waitForEnd(fd);
        return;
    }
    const auto line = [](std::string_view text) { return Data(text.begin(), text.end()); };
    std::string wanted(1, '\0');
    wanted += "AUTH EXTERNAL ";
    for (const char digit : std::to_string(::geteuid())) {
        wanted += std::string("3") + digit;
    }
    if (receiveLine(fd) != wanted + "\r\n" || behaviour_ == BusBehaviour::LetsNobodyIn) {
        (void)send(fd, line("REJECTED EXTERNAL\r\n"));
        return;
    }
    if (!send(fd, line("OK 0123456789abcdef0123456789abcdef\r\n")) || receiveLine(fd) != "BEGIN\r\n") {
        return;
    }
    while (true) {
        Data message;
        if (!receive(fd, message, host::kBusHeadSize)) {
            return;
        }
        const Result<std::size_t> size = host::busMessageSize(message);
        if (!size || !receive(fd, message, *size) || !answerCall(fd, message)) {
            return;
        }
    }
}

/// Whether the connection goes on.
bool ScriptedBus::answerCall(int fd, const Data& message) {
    const Call call = readCall(message);
    if (call.member == "Hello") {
        return send(fd, messageOf(BusMessageKind::Return, call.serial, std::nullopt));
    }
    return (call.member == "CheckAuthorization" && answerQuestion(fd, message)) ||
           (call.member == "Notify" && answerNotice(fd, call.serial, message));
}

bool ScriptedBus::answerQuestion(int fd, const Data& message) {
    const Call call = readCall(message);
    {
        const std::lock_guard lock(mutex_);
        asked_.push_back(readQuestion(message, call));
    }
    switch (behaviour_) {
        case BusBehaviour::HasNoDesktop:
            return send(fd, messageOf(BusMessageKind::Error, call.serial, std::nullopt));
        case BusBehaviour::NeverAnswers:
            return waitForEnd(fd);
        default:
            return send(fd, verdictOf(call.serial, behaviour_ != BusBehaviour::GivesNoNumber));
    }
}

bool ScriptedBus::answerNotice(int fd, std::uint32_t serial, const Data& message) {
    const ShownNotice notice = readNotice(message, readCall(message));
    std::uint32_t number = 0;
    {
        const std::lock_guard lock(mutex_);
        shown_.push_back(notice);
        number = notice.replaces != 0 ? notice.replaces : ++lastNumber_;
    }
    const Data signal = messageOf(BusMessageKind::Signal, 0, 5);
    switch (behaviour_) {
        case BusBehaviour::AnswersInPieces:
            return send(fd, signal) && send(fd, messageOf(BusMessageKind::Return, serial + 100, 9)) &&
                   send(fd, inOtherOrder(serial, number));
        case BusBehaviour::HasNoDesktop:
            return send(fd, messageOf(BusMessageKind::Error, serial, std::nullopt));
        case BusBehaviour::GivesNoNumber:
            return send(fd, messageOf(BusMessageKind::Return, serial, std::nullopt));
        case BusBehaviour::NeverAnswers:
            return waitForEnd(fd);
        case BusBehaviour::GoesAway:
            return false;
        case BusBehaviour::AnswersNonsense:
            return send(fd, Data(64, '?')) && waitForEnd(fd);
        case BusBehaviour::AnswersTooMuch:
            return send(fd, {'l', 2, 0, 1, 0xFF, 0xFF, 0xFF, 0xFF, 1, 0, 0, 0, 0, 0, 0, 0}) && waitForEnd(fd);
        case BusBehaviour::SaysEverythingElse:
            while (send(fd, signal)) {
            }
            return false;
        default:
            return send(fd, messageOf(BusMessageKind::Return, serial, number));
    }
}

}  // namespace ksw::test
