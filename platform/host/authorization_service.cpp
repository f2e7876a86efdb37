#include "platform/host/authorization_service.h"

#include <cerrno>

#include "platform/host/bus_connection.h"
#include "platform/host/host_root.h"
#include "platform/host/peer_identity.h"
#include "platform/host/process_facts.h"

namespace ksw::host {

namespace {

constexpr std::string_view kBusSocket = "/run/dbus/system_bus_socket";
constexpr std::string_view kService = "org.freedesktop.PolicyKit1";
constexpr std::string_view kPath = "/org/freedesktop/PolicyKit1/Authority";
constexpr std::string_view kInterface = "org.freedesktop.PolicyKit1.Authority";
/// The process, what it wants to do, details, how to ask, and a name to cancel the question by.
constexpr std::string_view kSignature = "(sa{sv})sa{ss}us";
constexpr std::size_t kStructAlignment = 8;

/// When the process was started, in the kernel's ticks, looked up while it certainly was this process.
Result<std::uint64_t> startTimeOf(const AuditToken& process) {
    const Result<std::string> stat = processFile(process.pid(), "stat");
    const std::optional<std::uint64_t> started = stat ? startTimeIn(*stat) : std::nullopt;
    if (Status same = revalidate(process); !same) {
        return same.error();
    }
    if (!started) {
        return stat ? Error(kPosixErrorDomain, ESRCH, "no start time") : stat.error();
    }
    return *started;
}

void beginEntry(BusWriter& writer, std::string_view key, std::string_view type) {
    writer.align(kStructAlignment);
    writer.text(key);
    writer.signature(type);
}

Data questionAbout(const AuditToken& process, std::uint64_t started, std::string_view action) {
    BusWriter writer;
    writer.text("unix-process");
    const std::size_t facts = writer.beginArray(kStructAlignment);
    beginEntry(writer, "pid", "u");
    writer.number(static_cast<std::uint32_t>(process.pid()));
    beginEntry(writer, "start-time", "t");
    writer.align(sizeof started);
    writer.number(static_cast<std::uint32_t>(started));
    writer.number(static_cast<std::uint32_t>(started >> 32U));
    beginEntry(writer, "uid", "i");
    writer.number(process.effectiveUid());
    writer.endArray(facts);
    writer.text(action);
    writer.endArray(writer.beginArray(kStructAlignment));
    writer.number(0);
    writer.text("");
    return writer.bytes();
}

}  // namespace

Result<bool> isAuthorized(const AuditToken& process, std::string_view action, std::chrono::milliseconds patience) {
    const Result<std::uint64_t> started = startTimeOf(process);
    if (!started) {
        return started.error();
    }
    const BusConnection::Deadline deadline = std::chrono::steady_clock::now() + patience;
    Result<BusConnection> bus = BusConnection::open(hostPath(kBusSocket), deadline);
    if (!bus) {
        return bus.error();
    }
    const Data question = questionAbout(process, *started, action);
    const Result<BusMessage> answer =
        bus->call({kService, kPath, kInterface, "CheckAuthorization", kSignature, question});
    if (!answer) {
        return answer.error();
    }
    if (!answer->firstNumber) {
        return Error(ConnectionError::ReplyInvalid, "CheckAuthorization: no verdict");
    }
    return *answer->firstNumber == 1;
}

}  // namespace ksw::host
