#include "platform/ipc/authorization.h"

#include <new>
#include <utility>

#include <unistd.h>

#include "platform/archive/cbor_reader.h"
#include "platform/archive/cbor_writer.h"
#include "platform/ipc/wire_types.h"

namespace ksw {

std::optional<Authorization> Authorization::ofCallingProcess(std::optional<Error>* error) {
    const Result<AuditToken> self = host::auditTokenForPid(::getpid());
    if (!self) {
        if (error != nullptr) {
            *error = self.error();
        }
        return std::nullopt;
    }
    return Authorization(ipc::serializedAuthorization(*self));
}

namespace ipc {

namespace {

constexpr std::string_view kPlace = "authorization";
constexpr std::size_t kParts = 2;

/// The process in whose name the bytes speak.
Result<AuditToken> processIn(Bytes serialized) {
    const Error& noMemory = archive::outOfMemoryError();
    try {
        archive::DecodeBudget budget(serialized.size());
        archive::Reader reader(serialized, budget);
        std::size_t count = 0;
        std::string_view right;
        std::optional<AuditToken> process;
        if (!reader.enterArray(count) ||
            !(count == kParts || reader.fail(FormatError::WrongType, "two parts expected")) ||
            !reader.text(right)) {
            return reader.error(kPlace);
        }
        if (right != kManageDatabaseRight) {
            reader.fail(FormatError::Unsupported, "another right");
            return reader.error(kPlace);
        }
        if (Status status = decodeValue(reader, nullptr, process); !status) {
            return status.error();
        }
        reader.leave();
        if (!process || !reader.end()) {
            reader.fail(FormatError::WrongType, "a process and nothing behind it expected");
            return reader.error(kPlace);
        }
        return *process;
    } catch (const std::bad_alloc&) {
        return noMemory;
    }
}

/// An identity of 0 is that of a process that nobody could look at, and equals no other.
bool isSameProcess(const AuditToken& one, const AuditToken& other) {
    return one.pid() == other.pid() && one.effectiveUid() == other.effectiveUid() &&
           one.processIdentity() == other.processIdentity() && one.processIdentity() != 0;
}

}  // namespace

Data serializedAuthorization(const AuditToken& process) {
    archive::Writer writer;
    writer.array(kParts);
    writer.text(kManageDatabaseRight);
    static_cast<void>(encodeValue(writer, std::optional(process)).ok());
    Result<Data> bytes = writer.take();
    return bytes ? *std::move(bytes) : Data{};
}

Status checkAuthorization(const std::optional<Data>& serialized, const AuditToken& peer) {
    if (!serialized) {
        return Error(FormatError::Malformed, "authorization: there is none");
    }
    const Result<AuditToken> process = processIn(*serialized);
    if (!process) {
        return process.error();
    }
    return isSameProcess(*process, peer)
               ? Status()
               : Status(Error(FormatError::Unsupported, "authorization: of another process, or as another user"));
}

Status checkAuthorization(const std::optional<Data>& serialized, const host::PeerIdentity& peer) {
    return checkAuthorization(serialized, peer.auditToken());
}

}  // namespace ipc

}  // namespace ksw
