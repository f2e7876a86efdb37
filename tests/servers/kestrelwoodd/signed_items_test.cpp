// Items whose code is signed: what their records say of who made them, and under whom they hang.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <map>

#include "platform/facts/launch_constraint.h"
#include "platform/facts/libcrypto.h"
#include "tests/servers/kestrelwoodd/record_requests.h"
#include "tests/support/signing_support.h"

namespace ksw::daemon::test {
namespace {

using facts::CertificateForm;
using facts::Identity;

constexpr KSWDisposition kLaunchable = KSWDispositionEnabled | KSWDispositionAllowed;

/// Programs that somebody has signed, and a daemon. Only the user who runs it may see whom the host trusts.
class ASignedItem : public facts::SigningTest {
protected:
    // What the daemon reads for an ordinary user it reads with his rights, also when root runs the test.
    ASignedItem() { EXPECT_EQ(chmod(files_.path().c_str(), 0755), 0); }

    const Identity& signerOf(const std::string& organization) {
        const auto found = signers_.find(organization);
        if (found != signers_.end()) {
            return found->second;
        }
        CertificateForm form;
        form.organization = organization;
        const std::string name = "signer" + std::to_string(signers_.size());
        return signers_.emplace(organization, certificates_.issue(trustedRoot(), name, form)).first->second;
    }
    void signBy(const Identity& signer, const std::string& path) {
        const Status signedIt = facts::sign(path, request(&signer));
        ASSERT_TRUE(signedIt.ok()) << signedIt.error().description();
    }
    /// A program of its own; signed when an organization is given.
    std::string program(const std::string& name, const std::optional<std::string>& organization = "Example Org") {
        std::string path = copyOf("/bin/true", name);
        if (organization) {
            signBy(signerOf(*organization), path);
        }
        return path;
    }
    /// Puts another program in the place of one.
    void replace(const std::string& path, const std::optional<std::string>& organization) {
        std::filesystem::rename(program("replacement", organization), path);
    }

    static Dictionary job(const std::string& label, const std::string& path) {
        return {{std::string(KSWConfigLabel), Value(label)}, {std::string(KSWConfigExecutablePath), Value(path)}};
    }
    Answer askOfAgent(Operations::Operation operation, const std::string& label, const std::string& path) {
        return daemon_.ask(operation, owner_, kLegacyAgent, kNoURL, jobURL(label), job(label, path), owner_.uid);
    }
    Answer enterAgent(const std::string& label, const std::string& path) {
        return askOfAgent(&Operations::enter, label, path);
    }
    Answer enterDaemon(const std::string& label, const std::string& path) {
        return daemon_.ask(&Operations::enter, kRoot, kLegacyDaemon, kNoURL, jobURL(label), job(label, path), 0);
    }
    Answer enterBundle(KSWItemType type, const std::string& bundle, const std::optional<URL>& url = kNoURL) {
        return daemon_.ask(&Operations::enter, owner_, type, URL::fileURL(bundle), url, kNoConfiguration,
                           owner_.uid);
    }
    ItemPointer agent(const std::string& label) { return daemon_.record(owner_.uid, "8." + label); }
    ItemPointer developer(std::string_view identifier) { return daemon_.record(owner_.uid, identifier); }
    void setAllowed(const ItemPointer& record, bool allowed) {
        const ItemPointer changed = copyOfRecord(*record);
        changed->setAllowed(allowed);
        ASSERT_EQ(requests_.update(owner_, changed, owner_.uid).code, KSWErrorRecordUpdated);
    }
    static std::optional<std::string> developerOf(const Answer& answer) {
        return answer.item == nullptr ? std::nullopt : answer.item->container()->identifier();
    }

    DaemonInside daemon_;
    RecordRequests requests_{daemon_};
    const Caller owner_ = anOwner();
    std::map<std::string, Identity> signers_;
};

TEST_F(ASignedItem, ShowsWhoMadeItAndWhatTheSignatureSays) {
    const std::string path = copyOf("/bin/true", "tool");
    SigningRequest sandboxed = request(&signerOf("Example Org"));
    sandboxed.entitlements =
        facts::bytesOf("<plist><dict><key>com.velmont.security.app-sandbox</key><true/></dict></plist>");
    sandboxed.requirement = "identifier \"com.example.tool\"";
    ASSERT_TRUE(facts::sign(path, sandboxed).ok());
    ASSERT_EQ(enterAgent("my.agent", path).code, KSWErrorNone);
    for (int start = 0; start < 2; ++start) {
        const ItemPointer item = agent("my.agent");
        ASSERT_NE(item, nullptr);
        EXPECT_EQ(item->teamIdentifier(), "TEAM000001");
        EXPECT_EQ(item->designatedRequirement(), "identifier com.example.tool");
        EXPECT_TRUE(item->isSandboxed());
        EXPECT_EQ(item->developerName(), "Example Org");
        EXPECT_EQ(item->bundleIdentifier(), std::nullopt);
        EXPECT_EQ(item->disposition(), kLaunchable);
        daemon_.restart();
    }
}

TEST_F(ASignedItem, HangsUnderItsDeveloper) {
    const Answer answer = enterAgent("my.agent", program("tool"));
    for (int start = 0; start < 2; ++start) {
        const ItemPointer maker = agent("my.agent")->container();
        EXPECT_EQ(maker->identifier(), "Example Org");
        EXPECT_EQ(maker->name(), "Example Org");
        EXPECT_EQ(maker->developerName(), "Example Org");
        EXPECT_EQ(maker->type(), KSWItemTypeDeveloper);
        EXPECT_EQ(maker->disposition(), KSWDispositionAllowed);
        EXPECT_EQ(developer("Example Org"), maker);
        EXPECT_EQ(developer("Unknown Developer"), nullptr);
        daemon_.restart();
    }
    ASSERT_EQ(answer.changes.size(), 1U);
    EXPECT_EQ(answer.changes[0].type, static_cast<std::int64_t>(KSWItemTypeAgent | KSWItemTypeDeveloper));
}

TEST_F(ASignedItem, SharesItsDevelopersRecordWithHisOthers) {
    enterAgent("first", program("first"));
    enterAgent("second", program("second"));
    enterAgent("another", program("another", "Other Works"));
    EXPECT_EQ(agent("first")->container(), agent("second")->container());
    EXPECT_EQ(developer("Example Org")->countOfEmbeddedItems(), 2U);
    EXPECT_EQ(developer("Other Works")->countOfEmbeddedItems(), 1U);
}

TEST_F(ASignedItem, SaysWhatMustHoldForItsLaunch) {
    facts::ConstraintFacts asked;
    asked.team = "TEAM000001";
    const std::string code = facts::textOf(facts::contentOf("/bin/true"));
    facts::CodeDirectory directory = directoryOf(code);
    directory.constraint = *facts::encodedRequirement(asked);
    const Data encoded = *facts::encodeDirectory(directory);
    const std::string path =
        fileWith("tool", code, encoded, certificates_.message(signerOf("Example Org"), encoded));
    const auto constraint = facts::LaunchConstraint::make(*directory.constraint, 1, 0);
    const Answer expected = askOfAgent(&Operations::effectiveDisposition, "my.agent", path);
    EXPECT_EQ(expected.requirement, constraint->externalRepresentation());
    ASSERT_EQ(enterAgent("my.agent", path).code, KSWErrorNone);
    const Answer answer = askOfAgent(&Operations::effectiveDisposition, "my.agent", path);
    EXPECT_EQ(answer.requirement, constraint->externalRepresentation());
    EXPECT_EQ(answer.disposition, kLaunchable);
}

/// Code that nobody whom this host trusts answers for.
class AnItemOfNobodyKnown : public ASignedItem {
protected:
    void expectUnknown(const std::string& path) {
        const Answer answer = enterAgent("my.agent", path);
        ASSERT_EQ(answer.code, KSWErrorNone);
        EXPECT_EQ(developerOf(answer), "Unknown Developer");
        EXPECT_EQ(answer.item->developerName(), "");
        EXPECT_EQ(answer.item->teamIdentifier(), std::nullopt);
        EXPECT_EQ(answer.item->designatedRequirement(), std::nullopt);
        EXPECT_EQ(answer.item->lightweightRequirement(), std::nullopt);
        EXPECT_FALSE(answer.item->isSandboxed());
    }
};

TEST_F(AnItemOfNobodyKnown, IsNotSigned) {
    expectUnknown(program("tool", std::nullopt));
}

TEST_F(AnItemOfNobodyKnown, IsSignedWithoutASigner) {
    const std::string path = program("tool", std::nullopt);
    ASSERT_TRUE(facts::sign(path, request(nullptr)).ok());
    expectUnknown(path);
}

TEST_F(AnItemOfNobodyKnown, WasAlteredAfterItWasSigned) {
    const std::string path = program("tool");
    Data content = facts::contentOf(path);
    content[100] ^= 1U;
    facts::writeContent(path, content);
    expectUnknown(path);
}

TEST_F(AnItemOfNobodyKnown, IsSignedByWhomTheHostDoesNotTrust) {
    CertificateForm form;
    form.organization = "Example Org";
    const std::string path = program("tool", std::nullopt);
    signBy(certificates_.issue(certificates_.root("untrusted"), "pretender", form), path);
    expectUnknown(path);
}

TEST_F(AnItemOfNobodyKnown, MayNotBeReadByWhoAsks) {
    const std::string path = program("tool");
    ASSERT_EQ(chmod(path.c_str(), 0111), 0);
    expectUnknown(path);
}

TEST_F(AnItemOfNobodyKnown, HasADeveloperWhoseNameCouldBeAnItems) {
    const std::string path = program("tool", std::nullopt);
    for (const char* name : {"8.my.agent", "2.x", "Unknown Developer", "urn:example", " \t"}) {
        replace(path, name);
        const Answer answer = askOfAgent(&Operations::enter, std::string("agent.of.") + name, path);
        EXPECT_EQ(developerOf(answer), "Unknown Developer") << name;
        EXPECT_EQ(answer.item->teamIdentifier(), "TEAM000001") << name;
        EXPECT_EQ(answer.item->developerName(), "") << name;
    }
}

TEST_F(ASignedItem, MayHaveADeveloperWithAnUnusualName) {
    const std::string path = program("tool", std::nullopt);
    for (const char* name : {"1. FC Example", "8 Works", "Example: Tools", "Велмонт 株式会社"}) {
        replace(path, name);
        EXPECT_EQ(developerOf(enterAgent("my.agent", path)), name);
    }
}

TEST_F(ASignedItem, WhoseCodeIsAnothersNowHangsUnderThatOneAndWaitsForApprovalAnew) {
    const std::string path = program("tool");
    const Answer first = enterDaemon("my.daemon", path);
    daemon_.allow(kEveryUser, "16.my.daemon");
    ASSERT_EQ(daemon_.record(kEveryUser, "16.my.daemon")->disposition(), kLaunchable);
    replace(path, "Other Works");
    const Answer second = enterDaemon("my.daemon", path);
    EXPECT_EQ(second.code, KSWErrorRecordUpdated);
    EXPECT_EQ(second.item->uuid(), first.item->uuid());
    EXPECT_EQ(second.item->generation(), 1);
    for (int start = 0; start < 2; ++start) {
        const ItemPointer record = daemon_.record(kEveryUser, "16.my.daemon");
        EXPECT_EQ(record->container()->identifier(), "Other Works");
        EXPECT_EQ(record->developerName(), "Other Works");
        EXPECT_EQ(record->disposition(), KSWDispositionEnabled);
        EXPECT_EQ(daemon_.record(kEveryUser, "Example Org"), nullptr);
        daemon_.restart();
    }
}

TEST_F(ASignedItem, WhoseCodeIsNobodysNowWaitsForApprovalAnew) {
    const std::string path = program("tool");
    enterDaemon("my.daemon", path);
    daemon_.allow(kEveryUser, "16.my.daemon");
    replace(path, std::nullopt);
    const Answer answer = enterDaemon("my.daemon", path);
    EXPECT_EQ(developerOf(answer), "Unknown Developer");
    EXPECT_EQ(answer.item->disposition(), KSWDispositionEnabled);
}

TEST_F(ASignedItem, InAnotherVersionOfTheSameDeveloperKeepsItsApproval) {
    const std::string path = program("tool");
    enterDaemon("my.daemon", path);
    daemon_.allow(kEveryUser, "16.my.daemon");
    const std::string next = copyOf("/bin/false", "next");
    signBy(signerOf("Example Org"), next);
    std::filesystem::rename(next, path);
    const Answer answer = enterDaemon("my.daemon", path);
    EXPECT_EQ(developerOf(answer), "Example Org");
    EXPECT_EQ(answer.item->disposition(), kLaunchable);
}

TEST_F(ASignedItem, ThatWasForbiddenIsSoUnderAnotherDeveloperToo) {
    const std::string path = program("tool");
    enterAgent("my.agent", path);
    setAllowed(agent("my.agent"), false);
    for (const std::optional<std::string>& organization : {std::optional<std::string>("Other Works"), {}}) {
        replace(path, organization);
        EXPECT_EQ(enterAgent("my.agent", path).item->disposition(), KSWDispositionEnabled);
    }
}

TEST_F(ASignedItem, WhoseDeveloperWasForbiddenIsSoUnderAnotherToo) {
    const std::string path = program("tool");
    enterAgent("my.agent", path);
    setAllowed(developer("Example Org"), false);
    replace(path, "Other Works");
    EXPECT_EQ(enterAgent("my.agent", path).item->disposition(), KSWDispositionEnabled);
}

TEST_F(ASignedItem, ThatWasDisabledIsSoUnderAnotherDeveloperToo) {
    const std::string path = program("tool");
    enterAgent("my.agent", path);
    const ItemPointer disabled = copyOfRecord(*agent("my.agent"));
    disabled->setEnabled(false);
    disabled->setNotified(true);
    ASSERT_EQ(requests_.update(owner_, disabled, owner_.uid).code, KSWErrorRecordUpdated);
    replace(path, "Other Works");
    EXPECT_EQ(enterAgent("my.agent", path).item->disposition(), KSWDispositionAllowed);
}

TEST_F(ASignedItem, LeavesItsFormerDeveloperWithHisOthers) {
    const std::string path = program("tool");
    enterAgent("my.agent", path);
    enterAgent("another", program("another"));
    replace(path, "Other Works");
    enterAgent("my.agent", path);
    for (int start = 0; start < 2; ++start) {
        EXPECT_EQ(developer("Example Org")->countOfEmbeddedItems(), 1U);
        EXPECT_EQ(agent("another")->container(), developer("Example Org"));
        EXPECT_EQ(agent("my.agent")->container(), developer("Other Works"));
        daemon_.restart();
    }
}

TEST_F(ASignedItem, IsMovedByARefreshWithoutAConfiguration) {
    const std::string path = program("tool");
    enterAgent("my.agent", path);
    replace(path, "Other Works");
    daemon_.writeJob("job.plist", "my.agent");
    const Answer answer = daemon_.ask(&Operations::refresh, owner_, kLegacyAgent, kNoURL,
                                      URL::fileURL(daemon_.folder().at("job.plist")), kNoConfiguration, owner_.uid);
    EXPECT_EQ(answer.code, KSWErrorNone);
    EXPECT_EQ(developerOf(answer), "Other Works");
}

TEST_F(ASignedItem, OfADeveloperWhoIsForbiddenMayNotLaunch) {
    const std::string path = program("tool");
    enterAgent("my.agent", path);
    setAllowed(developer("Example Org"), false);
    EXPECT_EQ(askOfAgent(&Operations::effectiveDisposition, "my.agent", path).disposition, KSWDispositionEnabled);
    EXPECT_EQ(askOfAgent(&Operations::effectiveDisposition, "not.recorded", program("next")).disposition,
              KSWDispositionEnabled);
    EXPECT_EQ(agent("not.recorded"), nullptr);
    EXPECT_EQ(developer("Example Org")->countOfEmbeddedItems(), 1U);
}

TEST_F(ASignedItem, ThatIsADaemonMayLaunchBesideAnAllowedOneOfItsDeveloper) {
    enterDaemon("first", program("first"));
    EXPECT_EQ(enterDaemon("second", program("second")).item->disposition(), KSWDispositionEnabled);
    daemon_.allow(kEveryUser, "16.first");
    daemon_.allow(kEveryUser, "16.second");
    EXPECT_EQ(enterDaemon("third", program("third")).item->disposition(), kLaunchable);
    EXPECT_EQ(enterDaemon("anothers", program("anothers", "Other Works")).item->disposition(),
              KSWDispositionEnabled);
}

TEST_F(ASignedItem, TheLastTakesItsDeveloperAlongUnlessHeIsForbidden) {
    const std::string path = program("tool");
    enterAgent("my.agent", path);
    EXPECT_EQ(requests_.remove(owner_, "8.my.agent", owner_.uid).code, KSWErrorNone);
    EXPECT_EQ(developer("Example Org"), nullptr);
    enterAgent("my.agent", path);
    setAllowed(developer("Example Org"), false);
    EXPECT_EQ(requests_.remove(owner_, "8.my.agent", owner_.uid).code, KSWErrorNone);
    daemon_.restart();
    ASSERT_NE(developer("Example Org"), nullptr);
    enterAgent("my.agent", path);
    EXPECT_FALSE(
        KSWDispositionIsLaunchable(askOfAgent(&Operations::effectiveDisposition, "my.agent", path).disposition));
}

TEST_F(ASignedItem, OfADeveloperWhoseRecordIsDamagedIsNotEntered) {
    enterAgent("my.agent", program("tool"));
    daemon_.damage("UPDATE items SET record = x'00' WHERE identifier = 'Example Org'");
    const std::string next = program("next");
    EXPECT_EQ(enterAgent("next", next).code, KSWErrorGeneric);
    EXPECT_EQ(askOfAgent(&Operations::effectiveDisposition, "next", next).code, KSWErrorGeneric);
}

TEST_F(ASignedItem, ThatIsAnApplicationIsKnownByItsSigningIdentifier) {
    const std::string path = facts::makeApplication(files_, "My Tool.app", "com.example.bundle");
    EXPECT_EQ(enterBundle(KSWItemTypeApp, path).code, KSWErrorInvalidParameter);
    signBy(signerOf("Example Org"), path);
    const Answer answer = enterBundle(KSWItemTypeApp, path);
    ASSERT_EQ(answer.code, KSWErrorNone);
    EXPECT_EQ(answer.item->identifier(), "2.com.example.tool");
    EXPECT_EQ(answer.item->name(), "My Tool");
    EXPECT_EQ(answer.item->bundleIdentifier(), "com.example.bundle");
    EXPECT_EQ(answer.item->teamIdentifier(), "TEAM000001");
    EXPECT_EQ(developerOf(answer), "Example Org");
    EXPECT_EQ(enterBundle(KSWItemTypeApp, path).code, KSWErrorRecordExists);
}

TEST_F(ASignedItem, ThatIsALoginItemIsKnownByTheHelperInItsApplication) {
    facts::makeApplication(files_, "My.app", "com.example.bundle");
    const std::string helper = "Contents/Library/LoginItems/Helper.app";
    signBy(signerOf("Example Org"), facts::makeApplication(files_, "My.app/" + helper, "com.example.helper"));
    const Answer answer = enterBundle(KSWItemTypeLoginItem, files_.at("My.app"), URL::fileURL(helper));
    ASSERT_EQ(answer.code, KSWErrorNone);
    EXPECT_EQ(answer.item->identifier(), "4.com.example.tool");
    EXPECT_EQ(answer.item->name(), "Helper");
    EXPECT_EQ(answer.item->bundleIdentifier(), "com.example.helper");
    EXPECT_EQ(answer.item->url()->relativePath(), helper);
    EXPECT_EQ(developerOf(answer), "Example Org");
    std::filesystem::remove_all(files_.at("My.app"));
    EXPECT_EQ(daemon_
                  .ask(&Operations::remove, owner_, KSWItemTypeLoginItem, URL::fileURL(files_.at("My.app")),
                       URL::fileURL(helper), kNoConfiguration, owner_.uid)
                  .code,
              KSWErrorNone);
}

TEST_F(ASignedItem, ThatIsAddedHangsUnderItsDeveloperWhateverTheClientSays) {
    const ItemPointer item = anAgent("my.agent");
    item->setExecutablePath(program("tool"));
    ASSERT_EQ(requests_.add(owner_, item, owner_.uid).code, KSWErrorNone);
    EXPECT_EQ(agent("my.agent")->container()->identifier(), "Example Org");
    EXPECT_EQ(agent("my.agent")->teamIdentifier(), "TEAM000001");
    EXPECT_EQ(agent("my.agent")->disposition(), item->disposition());
    const ItemPointer pretender = anAgent("pretender");
    pretender->setDeveloperName("Example Org");
    ASSERT_EQ(requests_.add(owner_, pretender, owner_.uid).code, KSWErrorNone);
    EXPECT_EQ(agent("pretender")->container()->identifier(), "Unknown Developer");
    EXPECT_EQ(agent("pretender")->developerName(), "");
    EXPECT_EQ(agent("pretender")->teamIdentifier(), std::nullopt);
}

TEST_F(ASignedItem, IsOfTheSameMakerAfterAnUpdateWhateverTheClientSays) {
    enterAgent("my.agent", program("tool"));
    const ItemPointer changed = copyOfRecord(*agent("my.agent"));
    changed->setDeveloperName("Other Works");
    changed->setTeamIdentifier("OTHER");
    changed->setLightweightRequirement(Data{1});
    changed->setName("another name");
    ASSERT_EQ(requests_.update(owner_, changed, owner_.uid).code, KSWErrorRecordUpdated);
    const ItemPointer record = agent("my.agent");
    EXPECT_EQ(record->name(), "another name");
    EXPECT_EQ(record->developerName(), "Example Org");
    EXPECT_EQ(record->teamIdentifier(), "TEAM000001");
    EXPECT_EQ(record->lightweightRequirement(), std::nullopt);
}

}  // namespace
}  // namespace ksw::daemon::test
