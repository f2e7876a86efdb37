// service_connection.h: a program's handle of the connection to a named service.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include <kestrelwood/export.h>
#include <kestrelwood/values/error.h>
#include <kestrelwood/values/value.h>

namespace ksw {

namespace ipc {
class Connection;
}  // namespace ipc

/// A connection to a named service, as its owner hands it out. It dials on its first request. Any thread may use
/// it.
class KSW_EXPORT ServiceConnection {
public:
    /// Takes the connection over; the framework's own objects make these.
    explicit ServiceConnection(std::unique_ptr<ipc::Connection> connection);
    ~ServiceConnection();
    ServiceConnection(const ServiceConnection&) = delete;
    ServiceConnection& operator=(const ServiceConnection&) = delete;

    /// The name that the service is published under (docs/wire.md).
    const std::string& serviceName() const;

    /// Asks the server how it fares: its counters by name ("served", "refused", "dropped", "quotaHits",
    /// "connections"; more may be added). Absent when it cannot be asked; `error` receives why, or nothing.
    /// Blocks for as long as the server takes.
    std::optional<Dictionary> serverStatus(std::optional<Error>* error = nullptr);

private:
    friend struct ServiceConnectionInside;

    std::unique_ptr<ipc::Connection> connection_;
};

}  // namespace ksw
