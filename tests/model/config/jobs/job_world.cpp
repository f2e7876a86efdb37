#include "tests/model/config/jobs/job_world.h"

#include <filesystem>
#include <memory>

#include <unistd.h>

namespace ksw::config {

namespace {

constexpr const char* kMakersRight = "com.velmont.private.kestrelwood.associatedbundleidentifiers";
constexpr const char* kSandbox = "com.velmont.security.app-sandbox";
constexpr const char* kNativeCode =
    "\x7F"
    "ELF and so on";
constexpr const char* kScript = "#!/bin/sh\n";

Data right(const std::string& key) {
    return facts::bytesOf("<plist><dict><key>" + key + "</key><true/></dict></plist>");
}

SigningRequest requestOf(const facts::Identity* signer, const std::string& identifier, const char* team) {
    SigningRequest request;
    request.identifier = identifier;
    request.team = team == nullptr ? std::nullopt : std::optional<std::string>(team);
    if (signer != nullptr) {
        request.key = facts::contentOf(signer->key);
        request.chain = facts::contentOf(signer->chain);
    }
    return request;
}

std::string entry(const std::string& label, const std::string& team, const std::string& name,
                  const std::vector<std::string>& applications) {
    std::string text = "<key>" + label + "</key><dict><key>Attribution</key><string>" + name + "</string>";
    if (!team.empty()) {
        text += "<key>TeamIdentifier</key><string>" + team + "</string>";
    }
    if (!applications.empty()) {
        text += "<key>AssociatedBundleIdentifiers</key><array>";
        for (const std::string& application : applications) {
            text += "<string>" + application + "</string>";
        }
        text += "</array>";
    }
    return text + "</dict>";
}

std::string table(const std::string& entries) {
    return "<plist version=\"1.0\"><dict>" + entries + "</dict></plist>";
}

}  // namespace

JobWorld& JobWorld::shared() {
    static const std::unique_ptr<JobWorld> world(new JobWorld);
    return *world;
}

JobWorld::JobWorld() {
    makeSigners();
    makePrograms();
    makeApplications();
    makeTables();
}

void JobWorld::setInternal(bool isInternal) const {
    constexpr const char* path = "/usr/share/kestrelwood/internal/com.velmont.kestrelwood";
    if (isInternal) {
        write(path, "");
    } else {
        std::filesystem::remove(at(path));
    }
}

void JobWorld::makeSigners() {
    facts::CertificateForm form;
    const facts::Identity root = certificates_.root("root");
    works_ = certificates_.issue(root, "works");
    form.organization = "Other Works";
    others_ = certificates_.issue(root, "others", form);
    const facts::Identity makersRoot = certificates_.root("makers-root");
    form.organization = "Velmont Inc.";
    maker_ = certificates_.issue(makersRoot, "maker", form);
    write("/etc/kestrelwood/trust/root.pem", facts::textOf(facts::contentOf(root.certificate)));
    write("/usr/share/kestrelwood/trust/maker/root.pem", facts::textOf(facts::contentOf(makersRoot.certificate)));
}

void JobWorld::sign(const std::string& path, const SigningRequest& request) const {
    const Status status = facts::sign(path, request);
    ASSERT_TRUE(status.ok()) << path << ": " << status.error().description();
}

void JobWorld::makePrograms() {
    const auto add = [this](const std::string& name, const char* code, const SigningRequest& request) {
        sign(write("/usr/lib/example/" + name, code), request);
    };
    add("tool", kNativeCode, requestOf(&works_, "com.example.tool.daemon", kTeam));
    SigningRequest sandboxed = requestOf(&works_, "com.example.script", kTeam);
    sandboxed.entitlements = right(kSandbox);
    add("script", kScript, sandboxed);
    add("other", kNativeCode, requestOf(&others_, "com.example.other.daemon", kOtherTeam));
    SigningRequest system = requestOf(&maker_, "com.velmont.system", nullptr);
    add("maker", kScript, system);
    system.entitlements = right(kMakersRight);
    add("system", kScript, system);
    add("adhoc", kScript, requestOf(nullptr, "com.example.adhoc", kTeam));
    add("tampered", kScript, requestOf(&works_, "com.example.tampered", kTeam));
    write("/usr/lib/example/tampered", std::string(kScript) + "evil\n");
    write("/usr/lib/example/plain", kScript);
}

void JobWorld::addApplication(const std::string& name, const std::string& identifier) const {
    const std::string contents = "/Applications/" + name + ".app/Contents/";
    write(contents + "Info.plist",
          "<plist><dict><key>QCBundleIdentifier</key><string>" + identifier + "</string></dict></plist>");
    write(contents + "Linux/" + name, kScript);
}

void JobWorld::makeApplications() {
    addApplication("Tool", "com.example.tool");
    sign(application("Tool"), requestOf(&works_, "com.example.tool", kTeam));
    const std::string helpers = "/Applications/Tool.app/Contents/Helpers/";
    sign(write(helpers + "helper", kNativeCode), requestOf(&works_, "com.example.tool.helper", kTeam));
    std::filesystem::create_symlink("helper", at(helpers + "alias"));
    std::filesystem::create_symlink(program("tool"), at(helpers + "stray"));
    std::filesystem::create_symlink(at("/usr/lib/example"), at(helpers + "elsewhere"));
    addApplication("Other", "com.example.other");
    sign(application("Other"), requestOf(&others_, "com.example.other", kOtherTeam));
    addApplication("Plain", "com.example.plain");
    addApplication("System", "com.example.system");
    SigningRequest system = requestOf(&maker_, "com.example.system", nullptr);
    system.entitlements = right(kMakersRight);
    sign(application("System"), system);
    addApplication("Waiting", "com.example.waiting");
    std::filesystem::remove(at("/Applications/Waiting.app/Contents/Linux/Waiting"));
}

void JobWorld::makeTables() const {
    write("/usr/share/kestrelwood/Resources/attributions.plist",
          table(entry("com.example.curated", kTeam, "Curated Works", {"com.example.tool"}) +
                entry("com.example.bare", kTeam, "Bare Works", {})));
    write(
        "/VelmontInternal/Library/Bundles/KestrelwoodInternal.bundle/Contents/Resources/"
        "attributions-internal.plist",
        table(entry("com.velmont.inner", "", "Inner Works", {"com.example.nowhere", "com.example.plain"}) +
              entry("com.velmont.strangers", "", "Strange Works", {"com.example.tool"}) +
              entry("com.velmont.alone", "", "Alone Works", {})));
}

DeniedRegistry::DeniedRegistry() : uid_(::geteuid()) {
    const JobWorld& world = JobWorld::shared();
    const std::string console = world.write("/dev/console", "");
    if (uid_ == 0) {
        // Somebody without an account.
        uid_ = 1'999'999'042;
        EXPECT_EQ(::chown(console.c_str(), uid_, uid_), 0);
        return;
    }
    std::filesystem::create_symlink("loop", world.at("/loop"));
    home_.emplace("HOME", "/loop");
}

DeniedRegistry::~DeniedRegistry() {
    std::filesystem::remove(JobWorld::shared().at("/dev/console"));
    std::filesystem::remove(JobWorld::shared().at("/loop"));
}

std::string DeniedRegistry::lineOf(const std::string& function) const {
    return function + ": failed to access almanacd for uid=" + std::to_string(uid_) +
           ": Error Domain=KSWPosixErrorDomain Code=";
}

KSWItem::Pointer JobTest::legacyItem(const Dictionary& config, KSWItemType type) {
    KSWItem::Pointer item = KSWItem::itemWithType(type, "8.com.example.job");
    vouching = item->setPropertiesWithKSWConfig(config);
    return item;
}

KSWItem::Pointer JobTest::itemInTool(KSWItemType type) {
    container = KSWItem::itemWithType(KSWItemTypeApp, world.applicationURL("Tool"), "2.com.example.tool");
    return KSWItem::itemWithType(type, URL::fileURL("Contents/Library/Agents/job.plist"), "8.com.example.job",
                                 container);
}

}  // namespace ksw::config
