#include <kestrelwood/code_signing.h>

#include <new>
#include <utility>

#include "platform/facts/bundle.h"
#include "platform/facts/code.h"
#include "platform/facts/sign.h"
#include "platform/facts/status.h"
#include "platform/plist/property_list.h"

namespace ksw {

namespace {

using facts::CodeFacts;

bool report(const Status& status, std::optional<Error>* error) {
    if (!status && error != nullptr) {
        *error = status.error();
    }
    return status.ok();
}

template <class T>
void put(Dictionary& dictionary, const char* key, const std::optional<T>& value) {
    if (value) {
        dictionary[key] = *value;
    }
}

const char* anchorName(facts::Anchor anchor) {
    switch (anchor) {
        case facts::Anchor::Maker:
            return "maker";
        case facts::Anchor::Trusted:
            return "trusted";
        default:
            return "none";
    }
}

Array certificatesOf(const CodeFacts& code) {
    Array certificates;
    for (const facts::Certificate& certificate : code.chain) {
        const Array organizations(certificate.organizations.begin(), certificate.organizations.end());
        certificates.emplace_back(Dictionary{{"Encoded", certificate.encoded}, {"Organizations", organizations}});
    }
    return certificates;
}

Dictionary dictionaryOf(const CodeFacts& code) {
    Dictionary dictionary{{"Identifier", code.identifier}, {"Format", code.format}, {"Source", code.source}};
    put(dictionary, "Team", code.team);
    put(dictionary, "Requirement", code.requirement);
    put(dictionary, "Entitlements", code.entitlements);
    put(dictionary, "InformationPropertyList", code.informationPropertyList);
    put(dictionary, "Constraint", code.constraint);
    return dictionary;
}

template <class SomeCode>
Result<Dictionary> describe(const Result<SomeCode>& code) {
    if (!code) {
        return code.error();
    }
    const auto verified = code->facts();
    if (verified) {
        Dictionary dictionary = dictionaryOf(**verified);
        dictionary["Valid"] = true;
        dictionary["Anchor"] = anchorName((*verified)->anchor);
        dictionary["Certificates"] = certificatesOf(**verified);
        return dictionary;
    }
    const Result<CodeFacts> claimed = code->claims();
    if (!claimed) {
        return verified.error();
    }
    Dictionary dictionary = dictionaryOf(*claimed);
    dictionary["Valid"] = false;
    dictionary["Status"] = verified.error().code();
    dictionary["StatusText"] = verified.error().localizedDescription();
    return dictionary;
}

template <class SomeCode>
std::optional<Dictionary> describeOrReport(const Result<SomeCode>& code, std::optional<Error>* error) {
    try {
        Result<Dictionary> dictionary = describe(code);
        if (dictionary) {
            return std::move(*dictionary);
        }
        report(dictionary.error(), error);
    } catch (const std::bad_alloc&) {
        report(facts::statusError(facts::CodeStatus::NoMemory), error);
    }
    return std::nullopt;
}

}  // namespace

bool signCode(const std::string& path, const SigningRequest& request, std::optional<Error>* error) {
    return report(facts::sign(path, request), error);
}

bool stripSignature(const std::string& path, std::optional<Error>* error) {
    return report(facts::strip(path), error);
}

bool verifyCode(const std::string& path, std::optional<Error>* error) {
    const Result<facts::StaticCode> code = facts::StaticCode::open(path);
    return report(code ? code->checkValidity(facts::Checks::WithoutResources) : Status(code.error()), error);
}

std::optional<Dictionary> describeCode(const std::string& path, std::optional<Error>* error) {
    return describeOrReport(facts::StaticCode::open(path), error);
}

std::optional<Dictionary> describeCode(const AuditToken& process, std::optional<Error>* error) {
    return describeOrReport(facts::RunningCode::open(process), error);
}

std::string codeStatusText(std::int64_t status) {
    return std::string(facts::statusText(status));
}

}  // namespace ksw
