#include "platform/host/desktop.h"

#include <cerrno>
#include <optional>
#include <string_view>

#include "platform/host/bus_connection.h"
#include "platform/host/sys_call.h"

namespace ksw::host {

namespace {

constexpr std::string_view kService = "org.freedesktop.Notifications";
constexpr std::string_view kObject = "/org/freedesktop/Notifications";
constexpr std::string_view kApplication = "Kestrelwood";
/// Where an entry of a dictionary stands.
constexpr std::size_t kEntryAlignment = 8;
constexpr std::uint32_t kAsLongAsTheDesktopLikes = 0xFFFFFFFFU;  // -1

std::string withoutMarkup(std::string_view text) {
    std::string plain;
    for (const char c : text) {
        switch (c) {
            case '&':
                plain += "&amp;";
                break;
            case '<':
                plain += "&lt;";
                break;
            case '>':
                plain += "&gt;";
                break;
            default:
                plain += c;
        }
    }
    return plain;
}

/// Application, number to replace, icon, summary, body, actions, hints, time to show it.
Data bodyOf(const DesktopNotice& notice) {
    BusWriter writer;
    writer.text(kApplication);
    writer.number(notice.replaces);
    writer.text("");
    writer.text(notice.summary);
    writer.text(withoutMarkup(notice.body));
    writer.endArray(writer.beginArray(sizeof(std::uint32_t)));
    const std::size_t hints = writer.beginArray(kEntryAlignment);
    writer.text("urgency");
    writer.signature("y");
    writer.byte(static_cast<std::uint8_t>(notice.urgency));
    writer.endArray(hints);
    writer.number(kAsLongAsTheDesktopLikes);
    return writer.bytes();
}

Result<std::uint32_t> showBefore(BusConnection::Deadline deadline, const DesktopNotice& notice) {
    const std::optional<std::string> path = sessionBusPath();
    if (!path) {
        return Error(ConnectionError::Unreachable, "the session has no bus");
    }
    Result<BusConnection> bus = BusConnection::open(*path, deadline);
    if (!bus) {
        return bus.error();
    }
    const Data body = bodyOf(notice);
    const Result<BusMessage> answer = bus->call({kService, kObject, kService, "Notify", "susssasa{sv}i", body});
    if (!answer) {
        return answer.error();
    }
    if (!answer->firstNumber || *answer->firstNumber == 0) {
        return Error(ConnectionError::ReplyInvalid, "the desktop gives a notice no number");
    }
    return *answer->firstNumber;
}

}  // namespace

Desktop::Desktop(std::chrono::milliseconds patience, const Clock& clock) : patience_(patience), clock_(clock) {}

Result<std::uint32_t> Desktop::show(const DesktopNotice& notice) {
    const std::lock_guard lock(mutex_);
    if (clock_.monotonic() < leftAloneUntil_) {
        return Error(ConnectionError::Unreachable, "the desktop was late a short while ago");
    }
    Result<std::uint32_t> shown = showBefore(std::chrono::steady_clock::now() + patience_, notice);
    if (!shown && sys::isErrno(shown.error(), ETIMEDOUT)) {
        leftAloneUntil_ = clock_.monotonic() + kRest;
    }
    return shown;
}

}  // namespace ksw::host
