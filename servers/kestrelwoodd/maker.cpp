#include "servers/kestrelwoodd/maker.h"

#include <algorithm>

#include "platform/base/limits.h"
#include "platform/facts/code_sign_info.h"
#include "servers/kestrelwoodd/given_item.h"
#include "servers/kestrelwoodd/reading_as.h"

namespace ksw::daemon {

namespace {

using Text = std::optional<std::string>;

/// The text if a record can hold it.
Text fitting(Text text) {
    return text && text->size() <= limits::kFieldMax ? std::move(text) : std::nullopt;
}

bool hasControlCharacter(std::string_view text) {
    return std::any_of(text.begin(), text.end(), [](unsigned char c) { return c < 0x20 || c == 0x7F; });
}

/// The code, open; absent when the caller may not read it, or it cannot be opened.
std::optional<facts::StaticCode> openCode(const std::string& path, const Caller& caller) {
    const ReadingAs rights(caller);
    if (!rights.ok()) {
        return std::nullopt;
    }
    Result<facts::StaticCode> code = facts::StaticCode::open(path);
    return code ? std::optional(*std::move(code)) : std::nullopt;
}

Maker makerOfOpen(const facts::StaticCode& code) {
    // For what nobody answers for, no user is to have gigabytes hashed.
    const Result<facts::CodeFacts> claimed = code.claims();
    if (!claimed || claimed->source != "embedded") {
        return {};
    }
    // Whom the host trusts is looked up without the caller's rights: were it hidden from him, it would seem to
    // trust nobody, and that answer is remembered for all.
    const auto info = CodeSignInfoAccess::of(code);
    if (!info) {
        return {};
    }
    const KSWCodeSignInfo& facts = **info;
    return {facts.signingIdentifier(),
            fitting(facts.bundleIdentifier()),
            facts.teamIdentifier(),
            fitting(facts.designatedRequirement()),
            facts.lightweightCodeRequirement(),
            usableDeveloperName(facts.developerName()),
            facts.isSandboxed()};
}

}  // namespace

Text usableDeveloperName(Text name) {
    name = fitting(std::move(name));
    const bool isUsable = name && !hasControlCharacter(*name) && !canIdentifyAnItem(*name);
    return isUsable ? std::move(name) : std::nullopt;
}

Maker makerOf(const std::optional<std::string>& path, const Caller& caller) {
    const std::optional<facts::StaticCode> code = path ? openCode(*path, caller) : std::nullopt;
    return code ? makerOfOpen(*code) : Maker();
}

bool isOfOtherMaker(const KSWItem& record, const std::string& path, const Caller& caller) {
    const std::optional<facts::StaticCode> code = openCode(path, caller);
    if (!code) {
        return false;
    }
    const Maker maker = makerOfOpen(*code);
    // Of a curated record a table says who the developer is.
    return maker.team != record.teamIdentifier() || maker.requirement != record.designatedRequirement() ||
           (!record.isCurated() && maker.developer.value_or(std::string()) != record.developerName());
}

void takeMaker(KSWItem& record, Maker maker) {
    if (!isJob(record.type())) {
        record.setBundleIdentifier(std::move(maker.bundleIdentifier));
    }
    record.setTeamIdentifier(std::move(maker.team));
    record.setDesignatedRequirement(std::move(maker.requirement));
    record.setLightweightRequirement(std::move(maker.constraint));
    record.setDeveloperName(std::move(maker.developer));
    record.setSandboxed(maker.isSandboxed);
}

void takeMaker(KSWItem& record, const KSWItem& source) {
    takeMaker(record,
              {std::nullopt, source.bundleIdentifier(), source.teamIdentifier(), source.designatedRequirement(),
               source.lightweightRequirement(), source.developerName(), source.isSandboxed()});
}

bool haveSameMaker(const KSWItem& record, const KSWItem& other) {
    return record.teamIdentifier() == other.teamIdentifier() &&
           record.designatedRequirement() == other.designatedRequirement() &&
           record.lightweightRequirement() == other.lightweightRequirement() &&
           record.developerName() == other.developerName() && record.isSandboxed() == other.isSandboxed() &&
           (isJob(record.type()) || record.bundleIdentifier() == other.bundleIdentifier());
}

}  // namespace ksw::daemon
