#include "platform/host/journal.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>

#include "platform/base/limits.h"
#include "platform/host/printable.h"
#include "platform/host/sys.h"

namespace ksw::host {

namespace {

constexpr std::chrono::milliseconds kPatience{limits::kLogSendMilliseconds};

/// The journal's priorities are those of syslog(3).
constexpr std::string_view priorityOf(LogLevel level) {
    constexpr std::array<std::string_view, 5> priorities{"7", "6", "5", "3", "2"};
    return priorities.at(static_cast<std::size_t>(level));
}

std::string recordOf(const LogLine& line, std::string_view message) {
    std::string record;
    appendJournalField(record, "MESSAGE", message);
    appendJournalField(record, "PRIORITY", priorityOf(line.level));
    appendJournalField(record, "SYSLOG_IDENTIFIER", ::program_invocation_short_name);
    appendJournalField(record, "KSW_SUBSYSTEM", kLogSubsystem);
    appendJournalField(record, "KSW_CATEGORY", line.category);
    appendJournalField(record, "KSW_FORMAT", line.text);
    if (line.activityId != 0) {
        appendJournalField(record, "KSW_ACTIVITY_ID", std::to_string(line.activityId));
        appendJournalField(record, "KSW_ACTIVITY", line.activity);
    }
    return record;
}

bool waitUntilWritable(int fd) {
    pollfd waiting{fd, POLLOUT, 0};
    const Result<std::size_t> ready = sys::poll({&waiting, 1}, kPatience);
    return ready && *ready == 1;
}

/// Sends a datagram; a full journal gets its time, once.
Result<sys::Transfer> sendPatiently(int fd, const msghdr& message) {
    Result<sys::Transfer> sent = sys::sendMessage(fd, message, MSG_DONTWAIT);
    if (sent && sent->wouldBlock && waitUntilWritable(fd)) {
        sent = sys::sendMessage(fd, message, MSG_DONTWAIT);
    }
    return sent;
}

Result<sys::Transfer> sendRecord(int fd, const std::string& record) {
    iovec vector{const_cast<char*>(record.data()), record.size()};
    msghdr message{};
    message.msg_iov = &vector;
    message.msg_iovlen = 1;
    return sendPatiently(fd, message);
}

/// A record too large for a datagram travels as a sealed file in memory.
Result<sys::Transfer> sendAsFile(int fd, const std::string& record) {
    const Result<UniqueFd> file = sys::memoryFile("journal-record");
    if (!file) {
        return file.error();
    }
    for (std::size_t done = 0; done < record.size();) {
        const Result<sys::Transfer> written = sys::write(file->get(), record.data() + done, record.size() - done);
        if (!written) {
            return written.error();
        }
        done += written->bytes;
    }
    if (Status sealed = sys::seal(file->get()); !sealed) {
        return sealed.error();
    }
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control{};
    msghdr message{};
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    cmsghdr* header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof(int));
    const int raw = file->get();
    std::memcpy(CMSG_DATA(header), &raw, sizeof raw);
    return sendPatiently(fd, message);
}

}  // namespace

void appendJournalField(std::string& record, std::string_view name, std::string_view value) {
    value = cutText(value, limits::kLogFieldMax);
    record += name;
    if (value.find('\n') == std::string_view::npos) {
        record += '=';
    } else {
        record += '\n';
        for (unsigned shift = 0; shift < 64; shift += 8) {
            record += static_cast<char>((static_cast<std::uint64_t>(value.size()) >> shift) & 0xFFU);
        }
    }
    record += value;
    record += '\n';
}

Journal::Journal(std::string path) : path_(std::move(path)), fd_(connect()) {}

UniqueFd Journal::connect() const {
    Result<UniqueFd> opened = sys::socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK);
    if (!opened || !sys::connectUnix(opened->get(), path_, kPatience)) {
        return {};
    }
    return std::move(*opened);
}

bool Journal::reconnect() const {
    const UniqueFd fresh = connect();
    return fresh && sys::replaceDescriptor(fresh.get(), fd_.get()).ok();
}

bool Journal::write(const LogLine& line, std::string_view message) const {
    const std::string record = recordOf(line, message);
    Result<sys::Transfer> sent = sendRecord(fd_.get(), record);
    if (!sent && sys::isErrno(sent.error(), EMSGSIZE)) {
        sent = sendAsFile(fd_.get(), record);
    } else if (!sent && reconnect()) {
        sent = sendRecord(fd_.get(), record);
    }
    return sent && !sent->wouldBlock;
}

}  // namespace ksw::host
