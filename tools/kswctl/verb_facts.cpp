// What is known of code by its signature: of a file or a bundle, or of what a process runs.
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <system_error>

#include <kestrelwood/KSWCodeSignInfo.h>
#include <kestrelwood/code.h>
#include <kestrelwood/code_signing.h>

#include "tools/common/code_status.h"
#include "tools/kswctl/place.h"
#include "tools/kswctl/record.h"
#include "tools/kswctl/verbs.h"

namespace tools::kswctl {
namespace {

using InfoPointer = std::shared_ptr<KSWCodeSignInfo>;

/// Null for every fact without a signature that holds: what the file says of itself proves nothing.
Record factsOf(const InfoPointer& info, const Record& sandboxed) {
    const auto fact = [&info](auto getter) { return info != nullptr ? orNull((info.get()->*getter)()) : nullptr; };
    return Record::object({
        {"signingIdentifier", fact(&KSWCodeSignInfo::signingIdentifier)},
        {"bundleIdentifier", fact(&KSWCodeSignInfo::bundleIdentifier)},
        {"teamIdentifier", fact(&KSWCodeSignInfo::teamIdentifier)},
        {"developerName", fact(&KSWCodeSignInfo::developerName)},
        {"designatedRequirement", fact(&KSWCodeSignInfo::designatedRequirement)},
        {"sandboxed", sandboxed},
        {"makerAnchored", info != nullptr ? Record(info->isMakerAnchored()) : Record(nullptr)},
    });
}

ExitStatus answer(Record facts, const std::string& code, const std::optional<ksw::Error>& error, Form form) {
    if (!error) {
        print(facts, form);
        return ExitStatus::Done;
    }
    const std::string text = ksw::codeStatusText(error->code());
    facts["status"] = error->code();
    facts["statusText"] = text;
    print(facts, form);
    return complainOfCode(code, error->code(), text);
}

ExitStatus factsOfProcess(pid_t pid, Form form) {
    const std::string code = "process " + std::to_string(pid);
    std::optional<ksw::Error> error;
    const std::optional<ksw::AuditToken> token = ksw::auditTokenForPid(pid, &error);
    if (!token) {
        return complainOfCode(code, error);
    }
    const InfoPointer info = KSWCodeSignInfo::codeSignInfoForProcess(*token, &error);
    // The process is in a sandbox or not, whoever signed what it runs.
    return answer(factsOf(info, AuditTokenIsSandboxed(*token)), code, error, form);
}

ExitStatus factsOfFile(const std::string& path, Form form) {
    std::error_code problem;
    const std::string whole = std::filesystem::absolute(path, problem).native();
    const ksw::URL url =
        ksw::URL::fileURL(whole, isDirectory(whole) ? ksw::PathKind::Directory : ksw::PathKind::File);
    std::optional<ksw::Error> error;
    const InfoPointer info = KSWCodeSignInfo::codeSignInfoForURL(url, &error);
    return answer(factsOf(info, info != nullptr ? Record(info->isSandboxed()) : Record(nullptr)), path, error,
                  form);
}

}  // namespace

ExitStatus showFacts(const Options& options) {
    return options.pid ? factsOfProcess(*options.pid, formOf(options)) : factsOfFile(options.code, formOf(options));
}

}  // namespace tools::kswctl
