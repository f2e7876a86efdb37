#include "platform/facts/code_sign_info.h"

#include <utility>

#include "platform/base/text.h"
#include "platform/facts/code_handle.h"
#include "platform/facts/code_questions.h"
#include "platform/facts/developer_name.h"
#include "platform/facts/launch_constraint.h"
#include "platform/facts/status.h"
#include "platform/host/log.h"

using ksw::facts::CodeFacts;
using ksw::facts::CodeStatus;
using ksw::facts::LaunchConstraint;
using Text = KSWCodeSignInfo::Text;

struct KSWCodeSignInfo::Content {
    std::shared_ptr<const CodeFacts> facts;
};

namespace {

constexpr ksw::StringConstant kBundleIdentifierKey = "QCBundleIdentifier";
constexpr ksw::StringConstant kAssociatedBundlesEntitlement =
    "com.velmont.private.kestrelwood.associatedbundleidentifiers";
constexpr ksw::StringConstant kSandboxEntitlement = "com.velmont.security.app-sandbox";

/// What the embedded signature of code says.
template <class Content, class SomeCode>
ksw::Result<std::unique_ptr<const Content>> contentOf(const ksw::Result<SomeCode>& code) {
    if (!code) {
        return code.error();
    }
    auto facts = code->facts();
    if (!facts) {
        return facts.error();
    }
    if ((*facts)->source != "embedded") {
        return ksw::facts::statusError(CodeStatus::Unsigned);
    }
    return std::unique_ptr<const Content>(new Content{std::move(*facts)});
}

/// The status alone: what was being asked for, the caller knows.
void report(const ksw::Error& reason, std::optional<ksw::Error>* error) {
    if (error != nullptr) {
        *error = ksw::Error(ksw::kStatusErrorDomain, reason.code());
    }
}

bool isEntitledTo(const CodeFacts& facts, std::string_view entitlement) {
    const bool* const value = facts.entitlements ? ksw::find<bool>(*facts.entitlements, entitlement) : nullptr;
    return value != nullptr && *value;
}

std::optional<LaunchConstraint> constraintOf(const CodeFacts& facts) {
    const bool isNative = facts.format.find("generic") == std::string::npos;
    if (!isNative || !facts.constraint) {
        return std::nullopt;
    }
    ksw::Result<LaunchConstraint> constraint =
        LaunchConstraint::make(*facts.constraint, LaunchConstraint::kVersion, LaunchConstraint::kCategory);
    if (!constraint) {
        ksw::host::mainLog.error("Failed to create LWCR: %{public}@", constraint.error());
        return std::nullopt;
    }
    return std::move(*constraint);
}

void logFailure(const ksw::Error& error, const std::optional<ksw::URL>& url) {
    ksw::host::mainLog.notice("%s: result=%d, url=%@", "-[KSWCodeSignInfo initWithURL:error:]",
                              static_cast<int>(error.code()), url);
}

}  // namespace

KSWCodeSignInfo::KSWCodeSignInfo(std::unique_ptr<const Content> content) : content_(std::move(content)) {}

KSWCodeSignInfo::~KSWCodeSignInfo() = default;

ksw::Result<std::shared_ptr<KSWCodeSignInfo>> ksw::CodeSignInfoAccess::of(const facts::StaticCode& code) {
    auto content = contentOf<KSWCodeSignInfo::Content>(ksw::Result<ksw::facts::StaticCode>(code));
    if (!content) {
        return content.error();
    }
    return std::shared_ptr<KSWCodeSignInfo>(new KSWCodeSignInfo(std::move(*content)));
}

std::shared_ptr<KSWCodeSignInfo> ksw::CodeSignInfoAccess::ofFound(const facts::FoundFile& file) {
    if (!file.url.isFileURL()) {
        return KSWCodeSignInfo::initWithURL(file.url);
    }
    const Result<facts::StaticCode> code = facts::StaticCode::openHeld(file.url.path(), file.readingURL.path());
    auto info = code ? of(*code) : Result<std::shared_ptr<KSWCodeSignInfo>>(code.error());
    if (info) {
        return std::move(*info);
    }
    logFailure(info.error(), file.url);
    return nullptr;
}

std::shared_ptr<KSWCodeSignInfo> KSWCodeSignInfo::initWithURL(const std::optional<ksw::URL>& url,
                                                              std::optional<ksw::Error>* error) {
    auto content = contentOf<Content>(ksw::facts::codeAtURL(url));
    if (content) {
        return std::shared_ptr<KSWCodeSignInfo>(new KSWCodeSignInfo(std::move(*content)));
    }
    logFailure(content.error(), url);
    report(content.error(), error);
    return nullptr;
}

std::shared_ptr<KSWCodeSignInfo> KSWCodeSignInfo::codeSignInfoForURL(const std::optional<ksw::URL>& url,
                                                                     std::optional<ksw::Error>* error) {
    return initWithURL(url, error);
}

std::shared_ptr<KSWCodeSignInfo> KSWCodeSignInfo::codeSignInfoForProcess(const ksw::AuditToken& process,
                                                                         std::optional<ksw::Error>* error) {
    auto content = contentOf<Content>(ksw::facts::RunningCode::open(process));
    if (content) {
        return std::shared_ptr<KSWCodeSignInfo>(new KSWCodeSignInfo(std::move(*content)));
    }
    ksw::host::mainLog.notice("%s: result=%d, pid=%d", "+[KSWCodeSignInfo codeSignInfoForProcess:error:]",
                              static_cast<int>(content.error().code()), process.pid());
    report(content.error(), error);
    return nullptr;
}

Text KSWCodeSignInfo::signingIdentifier() const {
    return content_->facts->identifier;
}

Text KSWCodeSignInfo::bundleIdentifier() const {
    const auto& list = content_->facts->informationPropertyList;
    const auto* const identifier = list ? ksw::find<std::string>(*list, kBundleIdentifierKey) : nullptr;
    return identifier == nullptr ? std::nullopt : Text(*identifier);
}

Text KSWCodeSignInfo::teamIdentifier() const {
    if (content_->facts->team) {
        return content_->facts->team;
    }
    return hasAssociatedBundleIdentifiersEntitlement() ? Text(ksw::facts::kPlatformTeam) : std::nullopt;
}

bool KSWCodeSignInfo::hasAssociatedBundleIdentifiersEntitlement() const {
    return isMakerAnchored() && isEntitledTo(*content_->facts, kAssociatedBundlesEntitlement);
}

Text KSWCodeSignInfo::designatedRequirement() const {
    return ksw::facts::requirementText(*content_->facts);
}

std::optional<ksw::Data> KSWCodeSignInfo::lightweightCodeRequirement() const {
    const std::optional<LaunchConstraint> constraint = constraintOf(*content_->facts);
    return constraint ? std::optional(constraint->externalRepresentation()) : std::nullopt;
}

Text KSWCodeSignInfo::developerName() const {
    return ksw::facts::withoutMaker(ksw::facts::leafOrganization(*content_->facts));
}

bool KSWCodeSignInfo::isMakerAnchored() const {
    return content_->facts->anchor == ksw::facts::Anchor::Maker;
}

bool KSWCodeSignInfo::isSandboxed() const {
    return isEntitledTo(*content_->facts, kSandboxEntitlement);
}

std::string KSWCodeSignInfo::description() const {
    return ksw::format("signing identifier=%@, bundle identifier=%@, team identifier=%@, developer name=%@",
                       signingIdentifier(), bundleIdentifier(), teamIdentifier(), developerName());
}

std::string KSWCodeSignInfo::debugDescription() const {
    const std::optional<LaunchConstraint> constraint = constraintOf(*content_->facts);
    const Text constraintText = constraint ? Text(constraint->debugDescription()) : std::nullopt;
    return ksw::format("%@\n   designated requirement=%@\n   lightweight requirement=%@", description(),
                       designatedRequirement(), constraintText);
}
