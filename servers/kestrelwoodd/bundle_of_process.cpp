#include "servers/kestrelwoodd/bundle_of_process.h"

#include <kestrelwood/KSWErrors.h>

#include "platform/host/bundles.h"
#include "platform/host/peer_identity.h"
#include "platform/host/sys_files.h"

namespace ksw::daemon {

namespace {

Error denied() {
    return KSWErrorWithCode(KSWErrorPermissionDenied);
}

}  // namespace

Result<std::optional<URL>> bundleOfProcess(const AuditToken& token, const Caller& caller) {
    // The token's words are the caller's; only what the kernel says of the pid now counts.
    const Result<UniqueFd> process = host::openProcess(token);
    const Result<AuditToken> now = host::auditTokenForPid(token.pid());
    if (!process || !now || now->processIdentity() != token.processIdentity()) {
        return denied();
    }
    if (!caller.isRoot() && (now->effectiveUid() != caller.uid || now->realUid() != caller.uid)) {
        return denied();
    }
    const Result<std::string> executable = host::sys::readLink("/proc/" + std::to_string(token.pid()) + "/exe");
    // Had the process ended before the reading, the link would be another's.
    if (!host::revalidate(token)) {
        return denied();
    }
    const auto bundle = executable ? host::applicationOfExecutable(*executable) : std::nullopt;
    return bundle ? std::optional(URL::fileURL(*bundle, PathKind::Directory)) : std::nullopt;
}

}  // namespace ksw::daemon
