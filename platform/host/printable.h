// printable.h: text from anywhere, made fit for a terminal and for a field.
#pragma once

#include <string>
#include <string_view>

namespace ksw::host {

/// The text without anything that a terminal would act on: control characters (C0, DEL, C1) and bytes that
/// are not UTF-8 are written as "\xNN", a line break as "\n", a tab as "\t", a backslash stays.
std::string printable(std::string_view text);

/// At most `sizeMax` bytes of the text, not cut within a UTF-8 character.
std::string_view cutText(std::string_view text, std::size_t sizeMax);

}  // namespace ksw::host
