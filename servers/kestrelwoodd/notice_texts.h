// notice_texts.h: the words of the notices to a user.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include <kestrelwood/KSWItem.h>
#include <kestrelwood/KSWTypes.h>

#include "platform/host/desktop.h"

namespace ksw::daemon {

/// What an item is called: its name, else its identifier; short, and without anything that a terminal would obey.
std::string noticeName(const KSWItem& item);
std::string noticeName(std::string_view name);

/// "NAME", or "NAME of OWNER" when the owner is known.
std::string nameWithOwner(const std::string& name, const std::string& owner);

host::DesktopNotice containerNotice(const std::string& name);
host::DesktopNotice itemNotice(const std::string& name, const std::string& owner);
host::DesktopNotice alertNotice(const std::string& name, const std::string& owner);

/// How many there are of what; not both 0.
struct NoticeCounts {
    std::int64_t background = 0;
    std::int64_t extensions = 0;
    KSWItemType types = 0;  ///< Kinds that are named behind; 0: none.
};
host::DesktopNotice countsNotice(const NoticeCounts& counts, const std::string& owner);

/// Whether an item of the kind is an extension of an application rather than a background item.
bool isExtension(KSWItemType type);

}  // namespace ksw::daemon
