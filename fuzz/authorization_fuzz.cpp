// authorization_fuzz.cpp: any bytes as an authorization: the peer's own, or an error of the format.
#include <cstdint>
#include <cstdlib>

#include "platform/ipc/authorization.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const ksw::AuditToken peer{{0, 0, 0, 0, 7, 4'294'967'295U, 1, 2}};
    const ksw::AuditToken another{{0, 0, 0, 0, 8, 4'294'967'295U, 1, 2}};
    const ksw::Data bytes(data, data + size);
    const ksw::Status isPeers = ksw::ipc::checkAuthorization(bytes, peer);
    if (!isPeers.ok() && isPeers.error().domain() != ksw::kFormatErrorDomain) {
        std::abort();
    }
    if (isPeers.ok() && ksw::ipc::checkAuthorization(bytes, another).ok()) {
        std::abort();
    }
    return 0;
}
