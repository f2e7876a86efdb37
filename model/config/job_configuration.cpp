// job_configuration.cpp: what a job's property list says, as a launch configuration.

#include <algorithm>
#include <utility>

#include <kestrelwood/KSWFunctions.h>

#include "platform/base/limits.h"
#include "platform/base/result.h"
#include "platform/base/utf8.h"

namespace ksw {

namespace {

bool hasControlCharacters(std::string_view text) {
    for (std::size_t position = 0; position < text.size();) {
        const std::optional<char32_t> character = decodeUtf8(text, position);
        if (!character || *character < 0x20 || (*character >= 0x7F && *character < 0xA0)) {
            return true;
        }
    }
    return false;
}

/// Takes keys out of a job's dictionary into a configuration, and keeps the first complaint.
class JobReader {
public:
    explicit JobReader(const Dictionary& job) : job_(job) {}

    void takeLabel() {
        const Value* value = valueOf("Label");
        if (value == nullptr) {
            complain("the key 'Label' is missing");
        } else if (takeText("Label", KSWConfigLabel) && hasControlCharacters(*value->as<std::string>())) {
            complain("the value of 'Label' has control characters in it");
        }
    }

    void takeArguments() {
        constexpr std::string_view key = "ProgramArguments";
        if (const Value* value = valueOf(key)) {
            takeTexts(key, KSWConfigArguments, *value);
        }
    }

    /// A single string counts as an array of one.
    void takeBundleIdentifiers() {
        constexpr std::string_view key = "AssociatedBundleIdentifiers";
        if (const Value* value = valueOf(key)) {
            const bool isSingle = value->as<std::string>() != nullptr;
            takeTexts(key, KSWConfigBundleIdentifiers, isSingle ? Value(Array{*value}) : *value);
        }
    }

    /// The executable's path, from the first key that names one. The first argument comes last, since it need only
    /// be the name that the program is to go by.
    void takeExecutable() {
        const bool isNamed = takeText("Program", KSWConfigExecutablePath);
        if (takeText("BundleProgram", KSWConfigBundleProgram) && !isNamed) {
            configuration_.emplace(KSWConfigExecutablePath, *valueOf("BundleProgram"));
        }
        const auto* arguments = find<Array>(configuration_, KSWConfigArguments);
        if (arguments != nullptr && !arguments->empty()) {
            configuration_.emplace(KSWConfigExecutablePath, arguments->front());
        }
    }

    Result<Dictionary> take() && {
        return complaint_ ? Result<Dictionary>(std::move(*complaint_)) : std::move(configuration_);
    }

private:
    const Value* valueOf(std::string_view key) const {
        const auto found = job_.find(key);
        return found == job_.end() ? nullptr : &found->second;
    }

    bool takeText(std::string_view jobKey, std::string_view configurationKey) {
        const Value* value = valueOf(jobKey);
        if (value == nullptr || !isField(jobKey, *value, "a string")) {
            return false;
        }
        configuration_.emplace(configurationKey, *value);
        return true;
    }

    void takeTexts(std::string_view jobKey, std::string_view configurationKey, const Value& value) {
        constexpr std::string_view expected = "an array of strings";
        const auto* array = value.as<Array>();
        if (array == nullptr) {
            complainOfType(jobKey, expected);
        } else if (std::all_of(array->begin(), array->end(),
                               [&](const Value& element) { return isField(jobKey, element, expected); })) {
            configuration_.emplace(configurationKey, value);
        }
    }

    bool isField(std::string_view jobKey, const Value& value, std::string_view expected) {
        const auto* text = value.as<std::string>();
        if (text == nullptr) {
            complainOfType(jobKey, expected);
        } else if (text->size() > limits::kFieldMax) {
            complain("the value of '" + std::string(jobKey) + "' is longer than " +
                         std::to_string(limits::kFieldMax) + " bytes",
                     FormatError::LimitPassed);
        }
        return text != nullptr && text->size() <= limits::kFieldMax;
    }

    void complainOfType(std::string_view key, std::string_view expected) {
        complain("the value of '" + std::string(key) + "' is not " + std::string(expected));
    }

    void complain(std::string_view text, FormatError code = FormatError::WrongType) {
        if (!complaint_) {
            complaint_.emplace(code, text);
        }
    }

    const Dictionary& job_;
    Dictionary configuration_;
    std::optional<Error> complaint_;
};

}  // namespace

std::optional<Dictionary> configurationFromJob(const Dictionary& job, std::optional<Error>* error) {
    JobReader reader(job);
    reader.takeLabel();
    reader.takeArguments();
    reader.takeBundleIdentifiers();
    reader.takeExecutable();
    Result<Dictionary> configuration = std::move(reader).take();
    if (configuration) {
        return std::move(*configuration);
    }
    if (error != nullptr) {
        *error = configuration.error();
    }
    return std::nullopt;
}

}  // namespace ksw
