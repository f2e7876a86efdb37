// flipping.h: two names that change places all the time.
#pragma once

#include <functional>
#include <string>

namespace ksw::test {

/// Has the two names of one file system change places 10,000 times on a thread of its own, and calls `look` again
/// and again meanwhile, at least once. At the end each is what it was.
void whileFlipping(const std::string& one, const std::string& other, const std::function<void()>& look);

/// The names change places once.
void flip(const std::string& one, const std::string& other);

}  // namespace ksw::test
