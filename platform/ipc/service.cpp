#include "platform/ipc/service.h"

#include <utility>

namespace ksw {

/// The way into a handle for this library.
struct ServiceConnectionInside {
    static ipc::Connection* connectionOf(ServiceConnection& handle) { return handle.connection_.get(); }
};

ServiceConnection::ServiceConnection(std::unique_ptr<ipc::Connection> connection)
    : connection_(std::move(connection)) {}

ServiceConnection::~ServiceConnection() = default;

const std::string& ServiceConnection::serviceName() const {
    return connection_->serviceName();
}

std::optional<Dictionary> ServiceConnection::serverStatus(std::optional<Error>* error) {
    auto reply = connection_->call(ipc::kServerStatus);
    if (error != nullptr) {
        *error = reply ? std::nullopt : std::optional(reply.error());
    }
    return reply ? std::get<0>(std::move(*reply)) : std::nullopt;
}

namespace ipc {

std::unique_ptr<ServiceConnection> openService(std::string_view name, const ConnectionOptions& options,
                                               ServiceInterface interface) {
    return std::make_unique<ServiceConnection>(std::make_unique<Connection>(name, options, std::move(interface)));
}

Connection* connectionOf(ServiceConnection* handle) {
    return handle == nullptr ? nullptr : ServiceConnectionInside::connectionOf(*handle);
}

}  // namespace ipc

}  // namespace ksw
