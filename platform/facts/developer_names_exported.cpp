#include <utility>

#include <kestrelwood/KSWAttributions.h>

#include "platform/facts/code_handle.h"
#include "platform/facts/developer_name.h"

namespace {

using Text = std::optional<std::string>;

/// The name, the maker's too.
template <class SomeCode>
Text developerOf(const ksw::Result<SomeCode>& code) {
    return code ? copyDeveloperName(ksw::CodeAccess::make(*code)) : std::nullopt;
}

}  // namespace

Text copyDeveloperName(const ksw::Code& code) {
    const auto known = ksw::facts::factsOf(code);
    return known ? ksw::facts::leafOrganization(**known) : std::nullopt;
}

Text DeveloperNameForAuditToken(const ksw::AuditToken* token) {
    return developerOf(ksw::facts::codeOfProcess(token));
}

Text DeveloperNameForURL(const std::optional<ksw::URL>& url) {
    return ksw::facts::withoutMaker(developerOf(ksw::facts::codeAtURL(url)));
}

Text DeveloperNameForPath(const Text& path) {
    return path ? DeveloperNameForURL(ksw::URL::fileURL(*path)) : std::nullopt;
}
