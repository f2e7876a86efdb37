#include <utility>

#include <kestrelwood/KSWFunctions.h>

#include "platform/base/result.h"
#include "platform/facts/code.h"
#include "platform/host/bundles.h"
#include "platform/host/translocation.h"
#include "platform/host/type_identifier.h"

namespace {

bool isBundle(const std::string& path) {
    const ksw::Result<std::string_view> type = ksw::host::typeIdentifier(path);
    return type && ksw::host::conformsToBundle(*type);
}

ksw::Result<ksw::URL> bundleURL(const ksw::AuditToken& token) {
    const ksw::Result<ksw::facts::RunningCode> code = ksw::facts::RunningCode::open(token);
    const ksw::Result<std::string> executable = code ? code->path() : ksw::Result<std::string>(code.error());
    if (!executable) {
        return executable.error();
    }
    const std::string path = ksw::host::imageOfProcess(token, *executable).value_or(*executable);
    const std::optional<std::string> bundle = ksw::host::bundleOfExecutable(path);
    if (bundle && isBundle(*bundle)) {
        return ksw::URL::fileURL(*bundle, ksw::PathKind::Directory);
    }
    return ksw::URL::fileURL(path);
}

}  // namespace

bool QCURLConformsToBundle(const std::optional<ksw::URL>& url) {
    return url && (url->isFileURL() || url->scheme().empty()) && isBundle(url->path());
}

std::optional<ksw::URL> BundleURLForAuditToken(const ksw::AuditToken& token, std::optional<ksw::Error>* error) {
    ksw::Result<ksw::URL> url = bundleURL(token);
    if (url) {
        return std::move(*url);
    }
    if (error != nullptr) {
        *error = ksw::Error(ksw::kStatusErrorDomain, url.error().code());
    }
    return std::nullopt;
}
