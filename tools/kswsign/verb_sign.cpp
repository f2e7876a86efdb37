// The verbs that change a file: signing it, and taking its signature away.
#include <optional>
#include <utility>
#include <variant>

#include <kestrelwood/code_signing.h>

#include "tools/common/code_status.h"
#include "tools/common/input_file.h"
#include "tools/common/outcome.h"
#include "tools/kswsign/verbs.h"

namespace tools::kswsign {
namespace {

/// The file's content into its place; the complaint when there is none.
template <class Place>
std::optional<Complaint> readInto(Place& place, const std::optional<std::string>& path) {
    if (!path) {
        return std::nullopt;
    }
    Outcome<ksw::Data> content = readInputFile(*path);
    if (auto* complaint = std::get_if<Complaint>(&content)) {
        return std::move(*complaint);
    }
    place = std::get<ksw::Data>(std::move(content));
    return std::nullopt;
}

}  // namespace

ExitStatus sign(const Options& options) {
    ksw::SigningRequest request;
    request.identifier = options.identifier;
    request.team = options.team;
    request.requirement = options.requirement;
    std::optional<Complaint> complaint = readInto(request.key, options.key);
    complaint = complaint ? complaint : readInto(request.chain, options.chain);
    complaint = complaint ? complaint : readInto(request.entitlements, options.entitlements);
    if (complaint) {
        return complain(*complaint);
    }
    std::optional<ksw::Error> error;
    return ksw::signCode(options.path, request, &error) ? ExitStatus::Done : complainOfCode(options.path, error);
}

ExitStatus strip(const Options& options) {
    std::optional<ksw::Error> error;
    return ksw::stripSignature(options.path, &error) ? ExitStatus::Done : complainOfCode(options.path, error);
}

}  // namespace tools::kswsign
