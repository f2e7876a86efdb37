// Items whose code is signed: what their records say of who made them.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/facts/launch_constraint.h"
#include "platform/facts/libcrypto.h"
#include "tests/servers/kestrelwoodd/signed_items.h"

namespace ksw::daemon::test {
namespace {

using facts::CertificateForm;

constexpr KSWDisposition kLaunchable = KSWDispositionEnabled | KSWDispositionAllowed;

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
        EXPECT_EQ(item->designatedRequirement(), "identifier \"com.example.tool\"");
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
    EXPECT_EQ(answer.item->developerName(), "Example Org");
    // Nobody has signed the application.
    EXPECT_EQ(answer.item->container()->url(), URL::fileURL(files_.at("My.app"), PathKind::Directory));
    EXPECT_EQ(answer.item->container()->container()->identifier(), "Unknown Developer");
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
    changed->setLightweightRequirement(std::nullopt);
    changed->setName("another name");
    ASSERT_EQ(requests_.update(owner_, changed, owner_.uid).code, KSWErrorRecordUpdated);
    const ItemPointer record = agent("my.agent");
    EXPECT_EQ(record->name(), "another name");
    EXPECT_EQ(record->developerName(), "Example Org");
    EXPECT_EQ(record->teamIdentifier(), "TEAM000001");
    EXPECT_NE(record->lightweightRequirement(), std::nullopt);
}

/// A signed agent, and a client's copy of it that names other code.
class AnItemWithOtherCode : public ASignedItem {
protected:
    ItemPointer copyNaming(const std::string& path) {
        const ItemPointer changed = copyOfRecord(*agent("my.agent"));
        changed->setExecutablePath(path);
        return changed;
    }
    std::int64_t update(const ItemPointer& item) { return requests_.update(owner_, item, owner_.uid).code; }

    const Answer entered_ = enterAgent("my.agent", program("tool"));
};

TEST_F(AnItemWithOtherCode, IsOfThatCodesMaker) {
    ASSERT_EQ(update(copyNaming(program("unsigned", std::nullopt))), KSWErrorRecordUpdated);
    for (int start = 0; start < 2; ++start) {
        const ItemPointer record = agent("my.agent");
        EXPECT_EQ(record->executablePath(), files_.at("unsigned"));
        EXPECT_EQ(record->generation(), 1);
        EXPECT_EQ(record->developerName(), "");
        EXPECT_EQ(record->teamIdentifier(), std::nullopt);
        EXPECT_EQ(record->container()->identifier(), "Unknown Developer");
        EXPECT_EQ(developer("Example Org"), nullptr);
        daemon_.restart();
    }
    ASSERT_EQ(update(copyNaming(program("others", "Other Works"))), KSWErrorRecordUpdated);
    EXPECT_EQ(agent("my.agent")->container(), developer("Other Works"));
}

TEST_F(AnItemWithOtherCode, OfTheSameMakerStaysWhereItIs) {
    ASSERT_EQ(update(copyNaming(program("next"))), KSWErrorRecordUpdated);
    EXPECT_EQ(agent("my.agent")->container(), developer("Example Org"));
    EXPECT_EQ(agent("my.agent")->teamIdentifier(), "TEAM000001");
    EXPECT_EQ(agent("my.agent")->disposition(), kLaunchable);
}

TEST_F(AnItemWithOtherCode, IsNotEnabledOrAllowedByWhatTheClientTookAway) {
    const ItemPointer changed = copyNaming(program("others", "Other Works"));
    changed->setEnabled(false);
    changed->setAllowed(false);
    ASSERT_EQ(update(changed), KSWErrorRecordUpdated);
    EXPECT_EQ(agent("my.agent")->disposition(), 0);
}

TEST_F(AnItemWithOtherCode, GoesToAnotherMakerByItself) {
    enterAgent("another", program("another"));
    const ItemPointer another = copyOfRecord(*agent("another"));
    another->setName("renamed");
    const ItemPointer changed = copyNaming(program("unsigned", std::nullopt));
    EXPECT_EQ(requests_.updateSet(owner_, std::vector<ItemPointer>{changed, another}, owner_.uid).code,
              KSWErrorInvalidParameter);
    EXPECT_EQ(agent("my.agent")->generation(), 0);
    EXPECT_NE(agent("another")->name(), "renamed");
    EXPECT_EQ(agent("my.agent")->container(), developer("Example Org"));
}

}  // namespace
}  // namespace ksw::daemon::test
