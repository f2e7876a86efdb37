#include "tools/kswctl/absent_facts.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <system_error>

#include <kestrelwood/KSWCodeSignInfo.h>
#include <kestrelwood/KSWTypes.h>
#include <kestrelwood/code_signing.h>

#include "tools/kswctl/place.h"

namespace tools::kswctl {
namespace {

/// What the signature of the code at a path lacks.
class Code {
public:
    explicit Code(std::string path) : path_(std::move(path)) {
        if (!path_.empty()) {
            const auto kind = isDirectory(path_) ? ksw::PathKind::Directory : ksw::PathKind::File;
            info_ = KSWCodeSignInfo::codeSignInfoForURL(ksw::URL::fileURL(path_, kind), &error_);
        }
    }

    bool isSigned() const { return info_ != nullptr; }

    /// `lack`: what is to be said of a signature that holds.
    std::string reason(const char* lack) const {
        if (path_.empty()) {
            return "there is no program";
        }
        if (info_ != nullptr || !error_) {
            return path_ + ": " + lack;
        }
        return path_ + ": " + ksw::codeStatusText(error_->code()) + " (" + std::to_string(error_->code()) + ")";
    }

private:
    std::string path_;
    std::optional<ksw::Error> error_;
    std::shared_ptr<KSWCodeSignInfo> info_;
};

std::string reasonOfFile(const std::string& path) {
    std::error_code problem;
    if (!path.empty()) {
        static_cast<void>(std::filesystem::last_write_time(path, problem));
    }
    return path.empty() ? "there is no program" : path + ": " + (problem ? problem.message() : "cannot be read");
}

/// The reasons of one item, which need its code's signature once.
class Reasons {
public:
    explicit Reasons(const DerivedItem& derived)
        : derived_(derived), code_(derived.executable), program_(derived.program) {}

    std::string of(const std::string& field) const {
        const bool isJob = derived_.configuration.has_value();
        if (field == "identifier") {
            return isJob ? "the job has no label" : code_.reason("the signature names no identifier");
        }
        if (field == "developerName") {
            return code_.reason("the certificate names no organization that is to be shown");
        }
        if (field == "executablePath") {
            return reasonOfProgram();
        }
        if (field == "programArguments" || field == "sha256") {
            return isJob ? "the job gives none" : "only jobs have them";
        }
        if (field == "executableModificationDate") {
            return isJob ? reasonOfFile(derived_.executable) : "only jobs have them";
        }
        if (field == "modificationDate") {
            return reasonOfFile(derived_.item->url() ? derived_.item->url()->path() : "");
        }
        if (field == "lightweightRequirement") {
            return program_.reason("the signature holds no launch constraint");
        }
        return ofMaker(field, isJob);
    }

private:
    std::string ofMaker(const std::string& field, bool isJob) const {
        if (field == "bundleIdentifier" && isJob) {
            return "a job is not its own code";
        }
        if (field == "associatedBundleIdentifiers" || field == "vouchingApplication") {
            return reasonOfClaims();
        }
        if (field == "container" || field == "containerURL") {
            return derived_.application == nullptr
                       ? "a legacy job is in no application"
                       : Code(derived_.application->url()->path()).reason("the signature names no identifier");
        }
        if (field == "teamIdentifier") {
            return code_.reason("the signature names no team");
        }
        if (field == "iconURL") {
            return "no file stands for it";
        }
        return code_.reason("the signature does not say");
    }

    std::string reasonOfProgram() const {
        if (!derived_.configuration) {
            return "it is the program itself";
        }
        const auto* path = ksw::find<std::string>(*derived_.configuration, KSWConfigExecutablePath);
        return path == nullptr ? "the job names no program" : *path + ": lies outside of the application";
    }

    std::string reasonOfClaims() const {
        const auto* claims = derived_.configuration
                                 ? ksw::find<ksw::Array>(*derived_.configuration, KSWConfigBundleIdentifiers)
                                 : nullptr;
        if (claims == nullptr || claims->empty()) {
            return "the job claims no application";
        }
        if (!derived_.item->teamIdentifier()) {
            return "the job claims applications, but its program has no team";
        }
        return "no application that the job claims is installed and of its team";
    }

    const DerivedItem& derived_;
    const Code code_;
    const Code program_;
};

}  // namespace

Record absentFacts(const DerivedItem& derived, const Record& record) {
    const Reasons reasons(derived);
    Record absent = Record::object();
    for (const auto& [field, value] : record.items()) {
        if (value.is_null()) {
            absent[field] = reasons.of(field);
        }
    }
    return absent;
}

}  // namespace tools::kswctl
