// Files of recorded items that change on disk: whoever asks about an item is answered by what they say now.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "servers/kestrelwoodd/item_facts.h"
#include "tests/servers/kestrelwoodd/signed_items.h"
#include "tests/support/file_times.h"
#include "tests/support/manual_clock.h"

namespace ksw::daemon::test {
namespace {

constexpr KSWDisposition kLaunchable = KSWDispositionEnabled | KSWDispositionAllowed;

class AChangedFile : public ASignedItem {
protected:
    Answer askOfDaemon(Operations::Operation operation) {
        return daemon_.ask(operation, kRoot, kLegacyDaemon, kNoURL, jobURL("my.daemon"), job("my.daemon", tool_),
                           0);
    }
    Answer askOfJob(Operations::Operation operation) {
        return daemon_.ask(operation, kRoot, kLegacyAgent, kNoURL, URL::fileURL(daemon_.folder().at("job.plist")),
                           kNoConfiguration, owner_.uid);
    }
    /// The agent's job file, which runs this program.
    void writeJob(const std::string& label, const std::string& path, std::int64_t changed) {
        const std::string file = daemon_.folder().writeFile(
            "job.plist", "<plist version=\"1.0\"><dict><key>Label</key><string>" + label +
                             "</string><key>Program</key><string>" + path + "</string></dict></plist>");
        ASSERT_EQ(chmod(file.c_str(), 0644), 0);
        ksw::test::setChanged(file, changed, 0);
    }
    ItemPointer daemonsRecord() { return daemon_.record(kEveryUser, "16.my.daemon"); }

    const std::string tool_ = program("tool");
};

TEST_F(AChangedFile, OfAnotherDeveloperIsNoticedByAQuestionAndWaitsForApprovalAnew) {
    askOfDaemon(&Operations::enter);
    daemon_.allow(kEveryUser, "16.my.daemon");
    replace(tool_, "Other Works");
    const Answer answer = askOfDaemon(&Operations::effectiveDisposition);
    EXPECT_EQ(answer.code, KSWErrorNone);
    EXPECT_EQ(answer.disposition, KSWDispositionEnabled);
    ASSERT_EQ(answer.changes.size(), 1U);
    EXPECT_EQ(answer.changes[0].uid, kEveryUser);
    for (int start = 0; start < 2; ++start) {
        EXPECT_EQ(daemonsRecord()->container()->identifier(), "Other Works");
        EXPECT_EQ(daemonsRecord()->generation(), 1);
        EXPECT_EQ(daemon_.record(kEveryUser, "Example Org"), nullptr);
        daemon_.restart();
    }
    EXPECT_TRUE(askOfDaemon(&Operations::effectiveDisposition).changes.empty());
}

TEST_F(AChangedFile, IsNoticedByEachKindOfQuestion) {
    const std::vector<Operations::Operation> questions{&Operations::fetch, &Operations::storedDisposition,
                                                       &Operations::effectiveDisposition};
    askOfDaemon(&Operations::enter);
    for (const Operations::Operation question : questions) {
        const std::int64_t generation = daemonsRecord()->generation();
        replace(tool_, std::nullopt);
        const Answer answer = askOfDaemon(question);
        EXPECT_EQ(answer.item, daemonsRecord());
        EXPECT_EQ(daemonsRecord()->generation(), generation + 1);
        EXPECT_EQ(answer.changes.size(), 1U);
    }
}

TEST_F(AChangedFile, OfTheSameDeveloperKeepsTheApproval) {
    askOfDaemon(&Operations::enter);
    daemon_.allow(kEveryUser, "16.my.daemon");
    const double former = daemonsRecord()->executableModificationDate();
    replace(tool_, "Example Org");
    EXPECT_EQ(askOfDaemon(&Operations::effectiveDisposition).disposition, kLaunchable);
    EXPECT_NE(daemonsRecord()->executableModificationDate(), former);
}

TEST_F(AChangedFile, IsLookedForOnceASecond) {
    ksw::test::ManualClock clock;
    DaemonInside daemon(clock);
    const auto ask = [&](Operations::Operation operation) {
        return daemon.ask(operation, kRoot, kLegacyDaemon, kNoURL, jobURL("my.daemon"), job("my.daemon", tool_), 0);
    };
    ask(&Operations::enter);
    ask(&Operations::effectiveDisposition);
    replace(tool_, std::nullopt);
    EXPECT_TRUE(ask(&Operations::effectiveDisposition).changes.empty());
    clock.advance(std::chrono::milliseconds(1001));
    EXPECT_FALSE(ask(&Operations::effectiveDisposition).changes.empty());
}

TEST_F(AChangedFile, HasItsDigestLookedAtAgain) {
    Dictionary digested = job("my.daemon", tool_);
    digested[std::string(KSWConfigSHA256Checksum)] = Data(32, 7);
    daemon_.ask(&Operations::enter, kRoot, kLegacyDaemon, kNoURL, jobURL("my.daemon"), digested, 0);
    EXPECT_EQ(daemonsRecord()->sha256(), Data(32, 7));
    replace(tool_, "Example Org");
    askOfDaemon(&Operations::fetch);
    const std::optional<Data> digest = daemonsRecord()->sha256();
    ASSERT_TRUE(digest.has_value());
    EXPECT_NE(digest, Data(32, 7));
    ksw::test::setChanged(tool_, 1'790'000'000, 0);
    askOfDaemon(&Operations::fetch);
    EXPECT_EQ(daemonsRecord()->sha256(), digest);
    EXPECT_EQ(daemonsRecord()->generation(), 2);
}

TEST_F(AChangedFile, ThatDescribesTheJobIsReadAgain) {
    const std::string other = program("other", "Other Works");
    writeJob("my.agent", tool_, 1'790'000'000);
    ASSERT_EQ(askOfJob(&Operations::enter).code, KSWErrorNone);
    EXPECT_EQ(agent("my.agent")->executablePath(), tool_);
    EXPECT_EQ(agent("my.agent")->developerName(), "Example Org");
    writeJob("my.agent", other, 1'790'000'001);
    EXPECT_EQ(askOfJob(&Operations::effectiveDisposition).code, KSWErrorNone);
    EXPECT_EQ(agent("my.agent")->executablePath(), other);
    EXPECT_EQ(agent("my.agent")->container()->identifier(), "Other Works");
}

TEST_F(AChangedFile, ThatDescribesAnotherJobNowChangesNothingButItsDate) {
    writeJob("my.agent", tool_, 1'790'000'000);
    askOfJob(&Operations::enter);
    writeJob("another", program("other", "Other Works"), 1'790'000'001);
    const Answer answer =
        daemon_.ask(&Operations::fetch, kRoot, kLegacyAgent, kNoURL, URL::fileURL(daemon_.folder().at("job.plist")),
                    jobNamed("my.agent"), owner_.uid);
    ASSERT_NE(answer.item, nullptr);
    EXPECT_EQ(answer.item->executablePath(), tool_);
    EXPECT_EQ(answer.item->generation(), 1);
}

TEST_F(AChangedFile, ThatIsGoneIsNone) {
    askOfDaemon(&Operations::enter);
    std::filesystem::remove(tool_);
    EXPECT_TRUE(askOfDaemon(&Operations::effectiveDisposition).changes.empty());
    EXPECT_EQ(daemonsRecord()->generation(), 0);
    EXPECT_EQ(daemonsRecord()->developerName(), "Example Org");
}

TEST_F(AChangedFile, ThatWasNotThereIsReadWhenItIs) {
    const std::string late = files_.at("late");
    enterAgent("my.agent", late);
    EXPECT_EQ(agent("my.agent")->developerName(), "");
    program("late");
    askOfAgent(&Operations::effectiveDisposition, "my.agent", late);
    EXPECT_EQ(agent("my.agent")->container()->identifier(), "Example Org");
}

TEST_F(AChangedFile, OfAJobThatOpensAnApplicationIsThatApplication) {
    facts::makeApplication(files_, "Opened.app", "com.example.opened");
    signBy(signerOf("Example Org"), files_.at("Opened.app"));
    Dictionary opening = job("my.agent", "/usr/bin/open");
    opening[std::string(KSWConfigArguments)] = Array{"/usr/bin/open", "-a", files_.at("Opened.app")};
    const auto ask = [&](Operations::Operation operation) {
        return daemon_.ask(operation, owner_, kLegacyAgent, kNoURL, jobURL("my.agent"), opening, owner_.uid);
    };
    EXPECT_EQ(ask(&Operations::enter).item->executablePath(), files_.at("Opened.app"));
    EXPECT_EQ(agent("my.agent")->name(), "Opened");
    signBy(signerOf("Other Works"), files_.at("Opened.app"));
    ksw::test::setChanged(files_.at("Opened.app"), 1'790'000'000, 0);
    ask(&Operations::effectiveDisposition);
    EXPECT_EQ(agent("my.agent")->executablePath(), files_.at("Opened.app"));
    EXPECT_EQ(agent("my.agent")->name(), "Opened");
    EXPECT_EQ(agent("my.agent")->container()->identifier(), "Other Works");
}

TEST_F(AChangedFile, OfAJobThatSeemsToOpenADocumentIsItsProgram) {
    Dictionary opening = job("my.agent", tool_);
    opening[std::string(KSWConfigArguments)] = Array{"open", "/etc/hosts"};
    const auto ask = [&](Operations::Operation operation) {
        return daemon_.ask(operation, owner_, kLegacyAgent, kNoURL, jobURL("my.agent"), opening, owner_.uid);
    };
    ask(&Operations::enter);
    replace(tool_, "Other Works");
    ask(&Operations::effectiveDisposition);
    EXPECT_EQ(agent("my.agent")->executablePath(), tool_);
    EXPECT_EQ(agent("my.agent")->container()->identifier(), "Other Works");
}

TEST_F(AChangedFile, OfAJobThatOpensAnApplicationLeavesItTheConstraintOfWhatOpensIt) {
    facts::makeApplication(files_, "Opened.app", "com.example.opened");
    signBy(signerOf("Example Org"), files_.at("Opened.app"));
    const std::string file = daemon_.folder().writeFile(
        "job.plist",
        "<plist version=\"1.0\"><dict><key>Label</key><string>my.agent</string><key>Program</key><string>" + tool_ +
            "</string><key>ProgramArguments</key><array><string>open</string><string>" + files_.at("Opened.app") +
            "</string></array></dict></plist>");
    ASSERT_EQ(chmod(file.c_str(), 0644), 0);
    ASSERT_EQ(askOfJob(&Operations::enter).code, KSWErrorNone);
    const std::optional<Data> constraint = agent("my.agent")->lightweightRequirement();
    ASSERT_TRUE(constraint.has_value());
    ksw::test::setChanged(files_.at("Opened.app"), 1'790'000'000, 0);
    EXPECT_EQ(askOfJob(&Operations::effectiveDisposition).requirement, constraint);
    EXPECT_EQ(agent("my.agent")->executablePath(), files_.at("Opened.app"));
    EXPECT_EQ(agent("my.agent")->generation(), 1);
}

TEST_F(AChangedFile, InsideAnApplicationIsNoticedThoughThatKeepsItsDate) {
    const std::string app = facts::makeApplication(files_, "Opened.app", "com.example.opened");
    const auto signAndDate = [&](const std::string& organization) {
        signBy(signerOf(organization), app);
        ksw::test::setChanged(app, 1'790'000'000, 0);
    };
    Dictionary opening = job("my.agent", "/usr/bin/open");
    opening[std::string(KSWConfigArguments)] = Array{"/usr/bin/open", app};
    const auto askOfOpening = [&](Operations::Operation operation) {
        return daemon_.ask(operation, owner_, kLegacyAgent, kNoURL, jobURL("my.agent"), opening, owner_.uid);
    };
    const auto askOfApplication = [&](Operations::Operation operation) {
        return daemon_.ask(operation, owner_, KSWItemTypeApp, URL::fileURL(app), kNoURL, kNoConfiguration,
                           owner_.uid);
    };
    signAndDate("Example Org");
    askOfOpening(&Operations::enter);
    const std::string identifier = *askOfApplication(&Operations::enter).item->identifier();
    EXPECT_TRUE(askOfOpening(&Operations::fetch).changes.empty());
    EXPECT_TRUE(askOfApplication(&Operations::fetch).changes.empty());
    signAndDate("Other Works");
    EXPECT_EQ(askOfOpening(&Operations::fetch).changes.size(), 1U);
    EXPECT_EQ(askOfApplication(&Operations::fetch).changes.size(), 1U);
    EXPECT_EQ(agent("my.agent")->container()->identifier(), "Other Works");
    EXPECT_EQ(daemon_.record(owner_.uid, identifier)->container()->identifier(), "Other Works");
    // Who may not read it has not seen that anything changed.
    ASSERT_EQ(chmod((app + "/Contents/Linux").c_str(), 0), 0);
    EXPECT_TRUE(askOfOpening(&Operations::fetch).changes.empty());
    ASSERT_EQ(chmod((app + "/Contents/Linux").c_str(), 0755), 0);
}

TEST_F(AChangedFile, OfALoginItemThatIsNamedFromTheRootLeavesItInItsApplication) {
    const std::string app = facts::makeApplication(files_, "Tool.app", "com.example.tool");
    const std::string helper = facts::makeApplication(files_, "Tool.app/Contents/Helper.app", "com.example.helper");
    signBy(signerOf("Example Org"), helper);
    signBy(signerOf("Example Org"), app);
    const auto ask = [&](Operations::Operation operation) {
        return daemon_.ask(operation, owner_, KSWItemTypeLoginItem | KSWItemTypeLegacyBit, URL::fileURL(app),
                           URL::fileURL(helper), kNoConfiguration, owner_.uid);
    };
    ASSERT_TRUE(ask(&Operations::enter).item->container()->intersectsType(KSWItemTypeApp));
    ksw::test::setChanged(helper, 1'790'000'000, 0);
    const Answer answer = ask(&Operations::fetch);
    EXPECT_EQ(answer.changes.size(), 1U);
    EXPECT_TRUE(answer.item->container()->intersectsType(KSWItemTypeApp));
}

TEST_F(AChangedFile, IsNoticedThoughAClientSaysItsDate) {
    enterAgent("my.agent", tool_);
    const ItemPointer changed = copyOfRecord(*agent("my.agent"));
    replace(tool_, std::nullopt);
    changed->setExecutableModificationDate(
        KSWItem::itemWithType(KSWItemTypeUserItem, URL::fileURL(tool_))->modificationDate());
    ASSERT_EQ(requests_.update(owner_, changed, owner_.uid).code, KSWErrorRecordUpdated);
    EXPECT_EQ(agent("my.agent")->developerName(), "Example Org");
    askOfAgent(&Operations::effectiveDisposition, "my.agent", tool_);
    EXPECT_EQ(agent("my.agent")->developerName(), "");
}

TEST(TheFactsOfAnItem, AreCuratedOrNotEachTimeAndManagedFromThenOn) {
    const ItemPointer record = bareItem(kLegacyAgent, "8.my.agent");
    const ItemPointer source = bareItem(kLegacyAgent, "8.my.agent");
    source->setCurated(true);
    source->setManaged(true);
    source->setAssociatedBundleIdentifiers(std::vector<std::string>{"com.example.app"});
    EXPECT_FALSE(haveSameFacts(*record, *source));
    takeFacts(*record, *source);
    EXPECT_TRUE(haveSameFacts(*record, *source));
    EXPECT_EQ(record->flags(), KSWItemFlagLegacy | KSWItemFlagCurated | KSWItemFlagManaged);
    EXPECT_EQ(record->associatedBundleIdentifiers(), source->associatedBundleIdentifiers());
    const ItemPointer plain = bareItem(kLegacyAgent, "8.my.agent");
    EXPECT_FALSE(haveSameFacts(*record, *plain));
    takeFacts(*record, *plain);
    EXPECT_TRUE(haveSameFacts(*record, *plain));
    EXPECT_EQ(record->flags(), KSWItemFlagLegacy | KSWItemFlagManaged);
}

TEST(AManagedJob, IsMarkedByItsPlace) {
    DaemonInside daemon;
    const URL url = URL::fileURL("/private/var/db/ManagedConfigurationFiles/KestrelwoodServices/my.plist");
    const auto enter = [&](const Caller& caller, const std::string& label, Uid uid) {
        return daemon.ask(&Operations::enter, caller, kLegacyAgent, kNoURL, url, jobNamed(label), uid);
    };
    EXPECT_TRUE(enter(kRoot, "managed", 0).item->isManaged());
    // Nobody else can have put anything there.
    EXPECT_FALSE(enter(anOwner(), "pretender", anOwner().uid).item->isManaged());
    EXPECT_TRUE(daemon.askOf(&Operations::enter, kRoot, kLegacyAgent, "managed", 0).item->isManaged());
}

/// What a registration says, and what comes of it.
struct Registration {
    KSWItemType type;
    std::optional<URL> bundle;
    std::optional<URL> url;
    std::optional<std::string> label;
    std::optional<std::string> identifier;  ///< As everybody's rule gives it.
    bool isRecorded;                        ///< Whether a record can be known by that.
};

TEST(ARegistration, IsIdentifiedAsEverywhere) {
    DaemonInside daemon;
    daemon.writeJob("My.app/Contents/Jobs/job.plist", "inside");
    daemon.writeJob("outside.plist", "outside");
    std::filesystem::create_symlink("../../outside.plist", daemon.folder().at("My.app/Contents/link.plist"));
    const std::optional<URL> app = URL::fileURL(daemon.folder().at("My.app"));
    const auto path = [](const char* text) { return std::optional(URL::fileURL(text)); };
    const auto words = [](const char* text) { return URL::fromString(text); };
    const std::optional<URL> outside = URL::fileURL(daemon.folder().at("outside.plist"));
    const std::string place = outside->absoluteString();
    const std::vector<Registration> table{
        {KSWItemTypeAgent, app, path("Contents/Jobs/job.plist"), {}, "8.inside", true},
        {KSWItemTypeDaemon, app, path("Contents/Jobs/job.plist"), {}, "16.inside", true},
        {KSWItemTypeAgent, app, path("Contents/./Jobs/../Jobs/job.plist"), {}, "8.inside", true},
        {KSWItemTypeAgent, app, path("../outside.plist"), {}, {}, false},
        {KSWItemTypeAgent, app, path("Contents/../../outside.plist"), {}, {}, false},
        {KSWItemTypeAgent, app, path("Contents/link.plist"), {}, {}, false},
        {KSWItemTypeAgent, app, path("../outside.plist"), "named", "8.named", false},
        {KSWItemTypeAgent, app, path("Contents/Jobs/job.plist"), "", "8.", false},
        {KSWItemTypeAgent, app, path("Contents/Jobs/job.plist"), "other", "8.other", true},
        {KSWItemTypeAgent, app, words("http:foo"), {}, {}, false},
        {kLegacyAgent, {}, words("http:foo"), {}, {}, false},
        {kLegacyAgent, {}, words("http://example.org/outside.plist"), {}, {}, false},
        {kLegacyAgent, {}, words("outside.plist"), {}, {}, false},
        {kLegacyAgent, {}, outside, {}, "8.outside", true},
        {kLegacyDaemon, {}, outside, {}, "16.outside", true},
        {kLegacyAgent, {}, outside, "", "8.", false},
        {kLegacyAgent, {}, outside, "a.b c/../d", "8.a.b c/../d", true},
        {kLegacyAgent, app, outside, "named", {}, false},
        {KSWItemTypeUserItem, {}, outside, {}, place, true},
        {KSWItemTypeUserItem, {}, words("http:foo"), {}, "http:foo", true},
        {KSWItemTypeUserItem, {}, words("16.my.daemon"), {}, "16.my.daemon", false},
        {KSWItemTypeUserItem, {}, path("/nowhere/at/all"), {}, {}, false},
        {KSWItemTypeApp, app, {}, {}, {}, false},
        {KSWItemTypeLoginItem, app, path("Contents/Helper.app"), {}, {}, false},
    };
    for (const Registration& row : table) {
        SCOPED_TRACE(testing::Message() << row.type << " " << (row.url ? row.url->absoluteString() : "-"));
        std::optional<Dictionary> job;
        if (row.label) {
            job = Dictionary{{KSWConfigLabel, Value(*row.label)}};
        }
        EXPECT_EQ(ItemIdentifierWithRegistrationInfo(row.type, row.bundle, row.url, job), row.identifier);
        const Answer answer = daemon.ask(&Operations::enter, kRoot, row.type, row.bundle, row.url, job, 0);
        EXPECT_EQ(answer.item != nullptr, row.isRecorded);
        if (answer.item != nullptr) {
            EXPECT_EQ(answer.item->identifier(), row.identifier);
        } else {
            EXPECT_EQ(answer.code, KSWErrorInvalidParameter);
        }
    }
}

}  // namespace
}  // namespace ksw::daemon::test
