// job_world.h: a host with signed programs, applications and attribution tables, for items of jobs.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>

#include <kestrelwood/KSWFunctions.h>
#include <kestrelwood/KSWItem.h>

#include "platform/host/log_capture.h"
#include "tests/support/environment.h"
#include "tests/support/signing_support.h"

namespace ksw::config {

inline constexpr const char* kTeam = "TEAM000001";
inline constexpr const char* kOtherTeam = "TEAM000002";

/// One for all tests of the program, since a process reads the attribution tables once, and looks at the folders of
/// applications once a second. Paths below `/` here are those of the host.
///
/// Programs, in /usr/lib/example: "tool" (native) and "script" (sandboxed) of the team, "other" of the other team,
/// "system" and "maker" of the platform's maker, with and without the right to name applications; "plain" is not
/// signed, "adhoc" by nobody, and "tampered" was changed after that.
/// Applications: Tool (com.example.tool) of the team, Other (com.example.other) of the other team, Plain
/// (com.example.plain) not signed, System (com.example.system) of the maker, with that right; Waiting
/// (com.example.waiting) is a placeholder. Tool has Contents/Helpers/helper, which the team has signed, and links:
/// "alias" to that, "stray" to /usr/lib/example/tool and "elsewhere" to the folder of that.
class JobWorld {
public:
    static JobWorld& shared();

    std::string at(const std::string& path) const { return host_.folder().path() + path; }
    std::string program(const std::string& name) const { return at("/usr/lib/example/" + name); }
    std::string application(const std::string& name) const { return at("/Applications/" + name + ".app"); }
    URL applicationURL(const std::string& name) const {
        return URL::fileURL(application(name), PathKind::Directory);
    }
    std::string write(const std::string& path, std::string_view content) const {
        return host_.folder().writeFile(path.substr(1), content);
    }
    /// Whether the host has internal content.
    void setInternal(bool isInternal) const;

private:
    friend struct std::default_delete<JobWorld>;
    JobWorld();
    ~JobWorld() = default;

    void makeSigners();
    void makePrograms();
    void makeApplications();
    void makeTables() const;
    void sign(const std::string& path, const SigningRequest& request) const;
    void addApplication(const std::string& name, const std::string& identifier) const;

    test::HostRoot host_;
    facts::CertificateMaker certificates_;
    facts::Identity works_;
    facts::Identity others_;
    facts::Identity maker_;
};

/// The user at the console has applications that may not be looked at, while this lives.
class DeniedRegistry {
public:
    DeniedRegistry();
    ~DeniedRegistry();
    DeniedRegistry(const DeniedRegistry&) = delete;
    DeniedRegistry& operator=(const DeniedRegistry&) = delete;

    /// How the line in the log begins.
    std::string lineOf(const std::string& function) const;

private:
    std::optional<test::ScopedVariable> home_;
    Uid uid_;
};

class JobTest : public testing::Test {
protected:
    using Item = KSWItem::Pointer;

    ~JobTest() override { world.setInternal(false); }

    /// A legacy job of this program.
    Item legacyItem(const Dictionary& config, KSWItemType type = KSWItemTypeAgent | KSWItemTypeLegacyBit);
    /// An agent in the application "Tool".
    Item itemInTool(KSWItemType type = KSWItemTypeAgent);
    Dictionary configOf(const std::string& program) const {
        return {{KSWConfigLabel, "com.example.job"}, {KSWConfigExecutablePath, world.program(program)}};
    }
    std::vector<std::string> errors() const { return log.at(host::LogLevel::Error); }
    std::vector<std::string> infos() const { return log.at(host::LogLevel::Info); }

    JobWorld& world = JobWorld::shared();
    host::LogCapture log;
    Item container;
    std::optional<URL> vouching;
};

}  // namespace ksw::config
