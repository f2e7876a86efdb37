#include "tools/kswsign/options.h"

#include <utility>

#include "tools/common/command_line.h"

namespace tools::kswsign {
namespace {

constexpr const char* kExitStatuses =
    "Exit status: 0 done or valid, 1 failed or not valid, 2 wrong usage, 5 not permitted.";

constexpr const char* kSignNote =
    "An older signature is replaced. The file is replaced as a whole, in one step; mode and owner stay.\n"
    "Without --requirement one is made of the identifier and the team, or the organization in the certificate.\n\n";

constexpr const char* kVerifyNote =
    "Valid is what is unaltered and signed by somebody whom this host trusts, or unaltered and signed ad hoc.\n\n";

constexpr const char* kDisplayNote =
    "Shows also what a signature says that is not valid; \"valid\" tells, and \"statusText\" why.\n\n";

constexpr const char* kStripNote = "The file is then as it was before it was signed.\n\n";

struct VerbRow {
    Verb verb;
    const char* name;
    const char* help;
    const char* note;
};

constexpr VerbRow kVerbs[] = {
    {Verb::Sign, "sign", "Sign code", kSignNote},
    {Verb::Verify, "verify", "Say whether code has a valid signature", kVerifyNote},
    {Verb::Display, "display", "Show what a signature says", kDisplayNote},
    {Verb::Strip, "strip", "Take a signature away", kStripNote},
};

/// What CLI11 fills.
struct Raw {
    Options options;
    bool isAdHoc = false;
};

void addSigningOptions(CLI::App& verb, Raw& raw) {
    Options& options = raw.options;
    CLI::Option* key = verb.add_option("--key", options.key, "The signer's private key, a PEM file");
    CLI::Option* chain =
        verb.add_option("--chain", options.chain, "The signer's certificate, then those above it, a PEM file");
    key->needs(chain);
    chain->needs(key);
    verb.add_flag("--ad-hoc", raw.isAdHoc, "Sign as nobody: seal the code without key and chain")
        ->excludes(key)
        ->excludes(chain);
    verb.add_option("--identifier", options.identifier, "The signing identifier")
        ->required()
        ->check(complaintIfEmpty);
    verb.add_option("--team", options.team, "The team identifier")->check(complaintIfEmpty);
    verb.add_option("--entitlements", options.entitlements, "A property list file with the entitlements")
        ->check(complaintIfEmpty);
    verb.add_option("--requirement", options.requirement, "The designated requirement, as text");
}

void addVerbs(CLI::App& app, Raw& raw) {
    for (const VerbRow& row : kVerbs) {
        CLI::App* verb = app.add_subcommand(row.name, row.help);
        addVersion(*verb);
        verb->footer(std::string(row.note) + kExitStatuses);
        verb->callback([&raw, id = row.verb] { raw.options.verb = id; });
        verb->add_option("PATH", raw.options.path,
                         "An executable, a script, another file, or an application bundle")
            ->required()
            ->check(complaintIfEmpty);
        if (row.verb == Verb::Sign) {
            addSigningOptions(*verb, raw);
        }
        if (row.verb == Verb::Display) {
            verb->add_flag("--json", raw.options.json, "Print JSON for programs");
        }
    }
}

}  // namespace

std::variant<Options, ExitStatus> parseOptions(int argc, const char* const* argv) {
    CLI::App app("Signs code, and shows what is signed.", "kswsign");
    Raw raw;
    addVersion(app);
    app.footer(kExitStatuses);
    app.require_subcommand(1);
    addVerbs(app, raw);
    if (const auto status = parse(app, argc, argv)) {
        return *status;
    }
    if (raw.options.verb == Verb::Sign && !raw.isAdHoc && !raw.options.key) {
        return wrongUsage("sign: either --key and --chain, or --ad-hoc");
    }
    return std::move(raw.options);
}

}  // namespace tools::kswsign
