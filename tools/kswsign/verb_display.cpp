// The verbs that look at a signature.
#include <iostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <kestrelwood/code_signing.h>

#include "tools/common/code_status.h"
#include "tools/common/record.h"
#include "tools/common/text.h"
#include "tools/kswsign/base64.h"
#include "tools/kswsign/verbs.h"

namespace tools::kswsign {
namespace {

Record base64OrNull(const ksw::Dictionary& dictionary, std::string_view key) {
    const auto* bytes = ksw::find<ksw::Data>(dictionary, key);
    return bytes != nullptr ? Record(base64(*bytes)) : Record(nullptr);
}

Record certificatesOf(const ksw::Dictionary& facts) {
    const auto* certificates = ksw::find<ksw::Array>(facts, "Certificates");
    if (certificates == nullptr) {
        return nullptr;
    }
    Record list = Record::array();
    for (const ksw::Value& certificate : *certificates) {
        if (const auto* fields = certificate.as<ksw::Dictionary>()) {
            const auto* organizations = ksw::find<ksw::Array>(*fields, "Organizations");
            list.push_back(Record::object(
                {{"organizations", organizations != nullptr ? recordOf(*organizations) : Record::array()},
                 {"encoded", base64OrNull(*fields, "Encoded")}}));
        }
    }
    return list;
}

Record recordOfFacts(const ksw::Dictionary& facts) {
    const auto plain = [&facts](std::string_view key) {
        const auto found = facts.find(key);
        return found == facts.end() ? Record(nullptr) : recordOf(found->second);
    };
    return Record::object({
        {"identifier", plain("Identifier")},
        {"team", plain("Team")},
        {"format", plain("Format")},
        {"source", plain("Source")},
        {"requirement", plain("Requirement")},
        {"entitlements", plain("Entitlements")},
        {"informationPropertyList", plain("InformationPropertyList")},
        {"constraint", base64OrNull(facts, "Constraint")},
        {"valid", plain("Valid")},
        {"anchor", plain("Anchor")},
        {"certificates", certificatesOf(facts)},
        {"status", plain("Status")},
        {"statusText", plain("StatusText")},
    });
}

/// A line for each fact. What stands inside another carries that one's name before its own, so that nothing a
/// signer writes into its lists can pose as a fact of the signature.
void appendRows(std::vector<Row>& rows, const std::string& name, const Record& value) {
    const bool isList = value.is_array() && !value.empty() && value.front().is_object();
    if ((!value.is_object() && !isList) || value.empty()) {
        rows.push_back({name, value.is_object() ? "" : cell(value)});
        return;
    }
    std::size_t number = 0;
    for (const auto& [key, inner] : value.items()) {
        // A certificate's bytes tell a person nothing.
        if (!(key == "encoded" && name.starts_with("certificates "))) {
            appendRows(rows, name + " " + (isList ? std::to_string(++number) : printable(key)), inner);
        }
    }
}

void printFacts(const Record& record) {
    std::vector<Row> rows;
    for (const auto& [name, value] : record.items()) {
        appendRows(rows, name, value);
    }
    printRows(rows);
}

}  // namespace

ExitStatus display(const Options& options) {
    std::optional<ksw::Error> error;
    const std::optional<ksw::Dictionary> facts = ksw::describeCode(options.path, &error);
    if (!facts) {
        return complainOfCode(options.path, error);
    }
    const Record record = recordOfFacts(*facts);
    if (options.json) {
        print(record, Form::Json);
    } else {
        printFacts(record);
    }
    return ExitStatus::Done;
}

ExitStatus verify(const Options& options) {
    std::optional<ksw::Error> error;
    const std::optional<ksw::Dictionary> facts = ksw::describeCode(options.path, &error);
    if (!facts) {
        return complainOfCode(options.path, error);
    }
    if (const auto* isValid = ksw::find<bool>(*facts, "Valid"); isValid == nullptr || !*isValid) {
        const auto* status = ksw::find<std::int64_t>(*facts, "Status");
        const auto* text = ksw::find<std::string>(*facts, "StatusText");
        return complainOfCode(options.path, status != nullptr ? *status : 0, text != nullptr ? *text : "not valid");
    }
    const auto* anchor = ksw::find<std::string>(*facts, "Anchor");
    const bool isAdHoc = anchor == nullptr || *anchor == "none";
    std::cout << (isAdHoc ? "valid, signed ad hoc: nobody answers for it\n"
                          : "valid, signed by whom this host trusts\n");
    return ExitStatus::Done;
}

}  // namespace tools::kswsign
