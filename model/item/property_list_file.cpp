#include <kestrelwood/KSWFunctions.h>

#include "platform/base/limits.h"
#include "platform/base/result.h"
#include "platform/host/file_facts.h"
#include "platform/plist/property_list.h"

using ksw::Dictionary;
using ksw::Error;
using ksw::FormatError;
using ksw::Result;
using ksw::URL;

namespace {

Result<Dictionary> dictionaryInFile(const URL& url) {
    if (!url.isFileURL()) {
        return Error(FormatError::Unsupported, url.absoluteString() + ": not a file URL");
    }
    Result<ksw::Data> bytes = ksw::host::readFile(url.path(), ksw::limits::kPropertyListFileMax);
    if (!bytes) {
        return bytes.error();
    }
    Result<ksw::Value> value = ksw::plist::read(*bytes);
    if (!value) {
        return value.error();
    }
    Dictionary* dictionary = value->as<Dictionary>();
    if (dictionary == nullptr) {
        return Error(FormatError::WrongType, url.path() + ": the property list is no dictionary");
    }
    return std::move(*dictionary);
}

}  // namespace

namespace ksw {

std::optional<Dictionary> readPropertyListFile(const URL& url, std::optional<Error>* error) {
    Result<Dictionary> dictionary = dictionaryInFile(url);
    if (dictionary) {
        return std::move(*dictionary);
    }
    if (error != nullptr) {
        *error = dictionary.error();
    }
    return std::nullopt;
}

}  // namespace ksw

std::optional<std::string> LabelForStewardPlist(const URL& url) {
    const std::optional<Dictionary> job = ksw::readPropertyListFile(url);
    const std::string* label = job.has_value() ? ksw::find<std::string>(*job, "Label") : nullptr;
    return label == nullptr ? std::nullopt : std::optional(*label);
}
