// The options of the verbs about what belongs to the system: settings, legacy login items, device management,
// switches.
#include <string>

#include <kestrelwood/KSWFunctions.h>

#include "tools/common/command_line.h"
#include "tools/kswctl/kinds.h"
#include "tools/kswctl/options_raw.h"

namespace tools::kswctl {
namespace {

CLI::Option* addText(CLI::App& verb, const char* name, std::string& place, const char* help) {
    return verb.add_option(name, place, help)->required()->check(complaintIfEmpty);
}

void addTurn(CLI::App& verb, Raw& raw) {
    verb.add_option("TURN", raw.turn, "on or off")->required()->check(CLI::IsMember({"on", "off"}));
}

void addRosterLocation(CLI::App& verb, Raw& raw) {
    addText(verb, "URL", raw.options.location, "A URL with its scheme, or the path of a file");
    verb.add_option("--type", raw.kindOfFile, "user-item, app or login-item (default: what the file is)")
        ->check(CLI::IsMember({"user-item", "app", "login-item"}));
    verb.add_flag("--global", raw.options.global, "Add it for every user");
    verb.add_flag("--managed", raw.options.managed, "Add it as device management's");
}

void addRosterChanges(CLI::App& verb, Raw& raw) {
    const auto add = [&verb](const char* name, std::optional<std::string>& place, const char* help) {
        verb.add_option(name, place, help)->check(CLI::IsMember({"on", "off"}));
    };
    add("--enabled", raw.enabled, "on or off: whether it is turned on");
    add("--allowed", raw.allowed, "on or off: whether it may launch");
    add("--hidden", raw.hidden, "on or off: whether it launches out of sight");
}

void addManagedJob(CLI::App& verb, Options& options) {
    CLI::Option* submit = verb.add_option("--submit", options.jobToSubmit, "Have the job in this file managed")
                              ->check(complaintIfEmpty);
    CLI::Option* path =
        verb.add_option("--remove", options.jobToRemove, "Have the job in this file managed no longer")
            ->check(complaintIfEmpty)
            ->excludes(submit);
    verb.add_option("--remove-label", options.labelToRemove, "The same for the job with this label")
        ->check(complaintIfEmpty)
        ->excludes(submit)
        ->excludes(path);
}

std::optional<bool> isOn(const std::optional<std::string>& turn) {
    return turn ? std::optional(*turn == "on") : std::nullopt;
}

std::string wholeName(const std::string& subsystem) {
    if (subsystem == "cron") {
        return KSWSubsystemCron;
    }
    return subsystem == "glimpse" ? std::string(KSWSubsystemGlimpse) : subsystem;
}

}  // namespace

void addSystemOptions(CLI::App& verb, Raw& raw, Takes takes) {
    Options& options = raw.options;
    switch (takes) {
        case Takes::Setting:
            verb.add_option("NAME", options.name, "The setting")
                ->required()
                ->check(CLI::IsMember({"rosterMigrated", "pellucidLoginItemsMigrated", "almanacItemsImported"}));
            addTurn(verb, raw);
            return;
        case Takes::KindsOfRoster:
            verb.add_option("--type", raw.kinds, "Kinds, with commas between (default: all): " + kindNames());
            return;
        case Takes::RosterLocation:
            addRosterLocation(verb, raw);
            return;
        case Takes::RosterChange:
            addRosterChanges(verb, raw);
            [[fallthrough]];
        case Takes::RosterItem:
            addText(verb, "ITEM", options.item, "The item");
            return;
        case Takes::PayloadFile:
            addText(verb, "IDENTIFIER", options.name, "The payload's identifier");
            addText(verb, "FILE", options.location, "The payload, a property list, XML or binary");
            verb.add_flag("--later", options.later, "Leave the items alone that there are");
            return;
        case Takes::Payload:
            addText(verb, "IDENTIFIER", options.name, "The payload's identifier");
            return;
        case Takes::ManagedJob:
            addManagedJob(verb, options);
            return;
        case Takes::SubsystemAndTurn:
        case Takes::Subsystem:
            addText(verb, "NAME", options.name, "The subsystem");
            if (takes == Takes::SubsystemAndTurn) {
                addTurn(verb, raw);
            }
            return;
        case Takes::Turn:
            addTurn(verb, raw);
            return;
        default:
            return;
    }
}

std::string complaintAboutSystemOptions(Raw& raw) {
    Options& options = raw.options;
    options.turnedOn = raw.turn == "on";
    options.enabled = isOn(raw.enabled);
    options.allowed = isOn(raw.allowed);
    options.hidden = isOn(raw.hidden);
    switch (options.verb) {
        case Verb::SubsystemHave:
        case Verb::SubsystemGet:
        case Verb::SubsystemSet:
        case Verb::SubsystemReset:
            options.name = wholeName(options.name);
            return "";
        case Verb::RosterUpdate:
            return options.enabled || options.allowed || options.hidden
                       ? ""
                       : "roster update: at least one of --enabled, --allowed and --hidden";
        default:
            return "";
    }
}

}  // namespace tools::kswctl
