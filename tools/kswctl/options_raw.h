// options_raw.h: the command line before it is judged.
#pragma once

#include <optional>
#include <string>

#include <CLI/CLI.hpp>

#include "tools/kswctl/options.h"

namespace tools::kswctl {

/// What a verb needs to be told.
enum class Takes {
    Nothing,
    Job,
    JobAlone,
    JobAndRoad,
    JobFolders,
    User,
    Kinds,
    Item,
    Location,
    Code,
    File,
    Bookmarked,
    Bookmark,
    Bookmarks,
    AgentItem,
    AgentLocation,
    // What belongs to the system.
    Setting,
    KindsOfRoster,
    RosterLocation,
    RosterItem,
    RosterChange,
    Payload,
    PayloadFile,
    ManagedJob,
    Subsystem,
    SubsystemAndTurn,
    Turn,
};

/// What CLI11 fills, as text where the text still has to be judged.
struct Raw {
    Options options;
    std::string kind = "agent";
    std::optional<std::string> kinds;
    std::optional<std::string> kindOfFile;
    std::optional<std::string> uid;
    bool registrar = false;
    std::string turn = "on";
    std::optional<std::string> enabled;
    std::optional<std::string> allowed;
    std::optional<std::string> hidden;
};

/// Adds the options of a verb about what belongs to the system.
void addSystemOptions(CLI::App& verb, Raw& raw, Takes takes);

/// What is wrong with these options, which are judged, or an empty text.
std::string complaintAboutSystemOptions(Raw& raw);

}  // namespace tools::kswctl
