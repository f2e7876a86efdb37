// localized_name.h: the name of a file for people.
#pragma once

#include <string>

#include "platform/host/file_facts.h"

namespace ksw::facts {

/// The name to show for the file at `path`, of which `facts` are known. That of an application stands in its
/// information property list, in the user's languages where `Contents/Resources/LANGUAGE/InfoPlist.plist` has it;
/// what is not there, too long, larger than 64 KiB or damaged is passed over. Any other file is called as its
/// folder calls it. UTF-8: other bytes become U+FFFD. Blocks for the file system. Any thread.
std::string localizedName(const std::string& path, const host::FileFacts& facts);

/// The text with U+FFFD for every byte that is not part of UTF-8.
std::string readableText(std::string_view text);

}  // namespace ksw::facts
