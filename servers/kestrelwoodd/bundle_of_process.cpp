#include "servers/kestrelwoodd/bundle_of_process.h"

#include <kestrelwood/KSWErrors.h>

#include "platform/host/peer_identity.h"
#include "platform/host/sys_files.h"

namespace ksw::daemon {

namespace {

Error denied() {
    return KSWErrorWithCode(KSWErrorPermissionDenied);
}

/// Cuts the last component off; what is left when it is `name`, else nothing.
std::optional<std::string_view> above(std::string_view path, std::string_view name) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string_view::npos || path.substr(slash + 1) != name) {
        return std::nullopt;
    }
    return path.substr(0, slash);
}

}  // namespace

std::optional<URL> bundleOfExecutable(std::string_view path) {
    const std::size_t slash = path.rfind('/');
    if (!path.starts_with('/') || slash + 1 == path.size()) {
        return std::nullopt;
    }
    const std::optional<std::string_view> contents = above(path.substr(0, slash), "Linux");
    const std::optional<std::string_view> bundle = contents ? above(*contents, "Contents") : std::nullopt;
    constexpr std::string_view kSuffix = ".app";
    const bool isApplication =
        bundle && bundle->ends_with(kSuffix) && bundle->size() - bundle->rfind('/') > kSuffix.size() + 1;
    return isApplication ? std::optional(URL::fileURL(*bundle, PathKind::Directory)) : std::nullopt;
}

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
    return executable.ok() ? bundleOfExecutable(*executable) : std::nullopt;
}

}  // namespace ksw::daemon
