// applications_test_support.h: applications in a host root of their own, and a clock that goes when it is told to.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <string_view>

#include <unistd.h>

#include "platform/facts/application_registry.h"
#include "platform/host/clock.h"
#include "tests/support/host_root.h"

namespace ksw::facts {

/// Stands still, but for the time of day, which is ahead of that of files that were just written.
class RegistryClock final : public host::Clock {
public:
    std::chrono::nanoseconds monotonic() const override { return std::chrono::nanoseconds(elapsed_.load()); }
    Date wall() const override { return Date{host::systemClock().wall().secondsSinceReference + ahead_}; }

    void advance(std::chrono::nanoseconds time) { elapsed_ += time.count(); }
    void setAhead(double seconds) { ahead_ = seconds; }

private:
    std::atomic<std::int64_t> elapsed_{1'000'000'000};
    double ahead_ = 10;
};

inline constexpr std::string_view kTool = "com.example.tool";

class ApplicationsTest : public testing::Test {
protected:
    static std::string listOf(std::string_view identifier, std::string_view more = {}) {
        return "<plist><dict><key>QCBundleIdentifier</key><string>" + std::string(identifier) + "</string>" +
               std::string(more) + "</dict></plist>";
    }
    /// Writes the bundle at a path of the host, whole.
    std::string add(const std::string& path, std::string_view identifier = kTool,
                    std::string_view more = {}) const {
        const std::string name = path.substr(path.rfind('/') + 1);
        addExecutable(path, name.substr(0, name.rfind('.')));
        return addPlaceholder(path, identifier, more);
    }
    std::string addPlaceholder(const std::string& path, std::string_view identifier = kTool,
                               std::string_view more = {}) const {
        root_.folder().writeFile(path.substr(1) + "/Contents/Info.plist", listOf(identifier, more));
        return at(path);
    }
    void addExecutable(const std::string& path, const std::string& name) const {
        root_.folder().writeFile(path.substr(1) + "/Contents/Linux/" + name, "#!/bin/sh\n");
    }
    std::string at(const std::string& path) const { return root_.folder().path() + path; }

    /// The path of what is found; empty for nothing.
    std::string found(std::string_view identifier = kTool) { return foundFor(user_, identifier); }
    std::string foundFor(Uid uid, std::string_view identifier = kTool,
                         Placeholders placeholders = Placeholders::LeftOut) {
        const ApplicationPointer application = registry_.find(identifier, uid, placeholders);
        return application == nullptr ? "" : application->path;
    }
    std::vector<std::string> pathsOf(Uid uid) {
        std::vector<std::string> paths;
        for (const ApplicationPointer& application : registry_.all(uid)) {
            paths.push_back(application->path);
        }
        return paths;
    }

    const test::HostRoot root_;
    const test::ScopedVariable home_{"HOME", "/home/me"};
    const Uid user_ = ::geteuid();
    RegistryClock clock_;
    ApplicationRegistry registry_{clock_};
};

}  // namespace ksw::facts
