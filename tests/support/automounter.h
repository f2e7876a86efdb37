// automounter.h: an automounter that never answers: whoever makes it mount something waits for ever. For tests in
// `withOwnMounts`.
#pragma once

#include <string>

#include <sys/types.h>

namespace ksw::test {

class SleepingAutomounter {
public:
    /// What is mounted: at the folder itself, or at the names in it that are asked for.
    enum class Map { Direct, Indirect };

    SleepingAutomounter();
    ~SleepingAutomounter();
    SleepingAutomounter(const SleepingAutomounter&) = delete;
    SleepingAutomounter& operator=(const SleepingAutomounter&) = delete;

    /// Puts it in charge of a folder. False, and said aloud, where the process may not; only root may.
    bool takeOver(const std::string& folder, Map map) const;

    /// Makes a folder in one of its folders, as it does itself; with an empty file system mounted there, or
    /// without.
    void addMounted(const std::string& folder) const;
    void addUnmounted(const std::string& folder) const;

private:
    template <class Act>
    void asItself(Act act) const;

    pid_t process_;
};

}  // namespace ksw::test
