#include "tools/kswctl/job_file.h"

#include <algorithm>
#include <optional>
#include <string_view>
#include <utility>

#include <kestrelwood/KSWFunctions.h>
#include <kestrelwood/KSWTypes.h>

namespace tools::kswctl {
namespace {

/// Takes keys out of a job's dictionary into a configuration and keeps the first complaint.
class JobReader {
public:
    explicit JobReader(const ksw::Dictionary& job) : job_(job) {}

    void takeText(std::string_view jobKey, std::string_view configurationKey) {
        if (const ksw::Value* value = valueOf(jobKey)) {
            if (const auto* text = value->as<std::string>()) {
                configuration_.emplace(configurationKey, *text);
            } else {
                wrong(jobKey, "a string");
            }
        }
    }

    /// A single string counts as an array of one where `mayBeSingle`.
    void takeTexts(std::string_view jobKey, std::string_view configurationKey, bool mayBeSingle) {
        const ksw::Value* value = valueOf(jobKey);
        if (value == nullptr) {
            return;
        }
        const auto* array = value->as<ksw::Array>();
        if (array != nullptr && std::all_of(array->begin(), array->end(), isText)) {
            configuration_.emplace(configurationKey, *array);
        } else if (mayBeSingle && isText(*value)) {
            configuration_.emplace(configurationKey, ksw::Array{*value});
        } else {
            wrong(jobKey, "an array of strings");
        }
    }

    /// The executable's path, from the first key that names one.
    void takeExecutable() {
        if (const auto* program = ksw::find<std::string>(job_, "Program")) {
            configuration_.emplace(KSWConfigExecutablePath, *program);
        } else if (const auto* arguments = ksw::find<ksw::Array>(configuration_, KSWConfigArguments);
                   arguments != nullptr && !arguments->empty()) {
            configuration_.emplace(KSWConfigExecutablePath, arguments->front());
        } else if (const auto* inside = ksw::find<std::string>(job_, "BundleProgram")) {
            configuration_.emplace(KSWConfigExecutablePath, *inside);
        }
    }

    void require(std::string_view jobKey) {
        if (job_.find(jobKey) == job_.end()) {
            complain("the key '" + std::string(jobKey) + "' is missing");
        }
    }

    void check(std::string_view jobKey) {
        if (const ksw::Value* value = valueOf(jobKey); value != nullptr && !isText(*value)) {
            wrong(jobKey, "a string");
        }
    }

    const std::optional<std::string>& complaint() const { return complaint_; }
    ksw::Dictionary take() && { return std::move(configuration_); }

private:
    static bool isText(const ksw::Value& value) { return value.as<std::string>() != nullptr; }

    const ksw::Value* valueOf(std::string_view key) const {
        const auto found = job_.find(key);
        return found == job_.end() ? nullptr : &found->second;
    }

    void wrong(std::string_view key, std::string_view expected) {
        complain("the value of '" + std::string(key) + "' is not " + std::string(expected));
    }

    void complain(std::string text) {
        if (!complaint_) {
            complaint_ = std::move(text);
        }
    }

    const ksw::Dictionary& job_;
    ksw::Dictionary configuration_;
    std::optional<std::string> complaint_;
};

}  // namespace

Outcome<ksw::Dictionary> configurationOfJob(const std::string& path) {
    std::optional<ksw::Error> error;
    const std::optional<ksw::Dictionary> job = ksw::readPropertyListFile(ksw::URL::fileURL(path), &error);
    if (!job) {
        return Complaint{ExitStatus::Failed,
                         path + ": " + (error ? std::string(error->localizedDescription()) : "cannot be read")};
    }
    JobReader reader(*job);
    reader.require("Label");
    reader.takeText("Label", KSWConfigLabel);
    reader.check("Program");
    reader.takeTexts("ProgramArguments", KSWConfigArguments, /*mayBeSingle=*/false);
    reader.takeText("BundleProgram", KSWConfigBundleProgram);
    reader.takeTexts("AssociatedBundleIdentifiers", KSWConfigBundleIdentifiers, /*mayBeSingle=*/true);
    reader.takeExecutable();
    if (reader.complaint()) {
        return Complaint{ExitStatus::Failed, path + ": " + *reader.complaint()};
    }
    return std::move(reader).take();
}

}  // namespace tools::kswctl
