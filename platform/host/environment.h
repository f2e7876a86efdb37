// environment.h: the variables of the environment.
#pragma once

#include <mutex>
#include <optional>
#include <string>

namespace ksw::host {

/// The variable's text; absent when it is not set, and always in a program that has more rights than who started it
/// (secure_getenv). Any thread.
std::optional<std::string> environmentVariable(const char* name);

/// Held while a variable is read. Whoever changes the environment while threads of the library run holds it too.
std::mutex& environmentMutex();

}  // namespace ksw::host
