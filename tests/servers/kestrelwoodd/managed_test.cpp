#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "platform/base/limits.h"
#include "tests/servers/kestrelwoodd/record_requests.h"

namespace ksw::daemon::test {
namespace {

constexpr KSWDisposition kEnabled = KSWDispositionEnabled;
constexpr KSWDisposition kAllowed = KSWDispositionAllowed;
constexpr KSWDisposition kHidden = KSWDispositionHidden;

Value rule(std::string_view match, std::string_view value, std::string_view effect) {
    return Dictionary{{"Match", Value(match)}, {"Value", Value(value)}, {"Effect", Value(effect)}};
}

Dictionary payloadOf(Array rules) {
    return {{"Rules", Value(std::move(rules))}};
}

/// A daemon to which device management speaks.
class ManagedItems : public WithRecords {
protected:
    Report set(const std::optional<Dictionary>& payload, bool isImmediate = true,
               const std::optional<std::string>& identifier = "com.example.policy") {
        return daemon_.housekeeping().perform(&Housekeeping::setPayload, Rule::Manage, kRoot, payload, identifier,
                                              isImmediate);
    }
    std::optional<Dictionary> payload(const std::string& identifier = "com.example.policy") {
        return daemon_.housekeeping()
            .perform(&Housekeeping::payload, Rule::Manage, kRoot, std::optional(identifier))
            .dictionary;
    }
    ItemPointer agent(std::string_view label = "my.agent") {
        return daemon_.record(owner_.uid, "8." + std::string(label));
    }
    KSWDisposition inForce(std::string_view label = "my.agent") {
        return daemon_.askOf(&Operations::effectiveDisposition, owner_, kLegacyAgent, label, owner_.uid)
            .disposition;
    }
    /// The user's own change.
    std::int64_t choose(KSWDisposition disposition, std::string_view label = "my.agent") {
        const ItemPointer item = copyOf(agent(label));
        item->setDisposition(disposition);
        return requests_.update(owner_, item, owner_.uid).code;
    }
    void expectAsUnmanaged(const ItemPointer& item, KSWDisposition disposition) {
        ASSERT_NE(item, nullptr);
        EXPECT_EQ(item->disposition(), disposition);
        EXPECT_FALSE(item->isManaged());
    }
    void expectManaged(const ItemPointer& item, KSWDisposition disposition) {
        ASSERT_NE(item, nullptr);
        EXPECT_EQ(item->disposition(), disposition);
        EXPECT_TRUE(item->isManaged());
    }
};

const Dictionary kForbidAgent = payloadOf({rule("Label", "my.agent", "Disallow")});

TEST_F(ManagedItems, ThatAreThereAreForbiddenAndAsTheirUserChoseAgainAfterwards) {
    daemon_.enterAgent(owner_, "my.agent", owner_.uid);
    daemon_.enterAgent(owner_, "other", owner_.uid);
    const std::int64_t generation = agent()->generation();
    const Report report = set(kForbidAgent);
    EXPECT_EQ(report.code, KSWErrorNone);
    EXPECT_EQ(report.changes, (std::vector<protocol::UserDataChange>{{owner_.uid, KSWItemTypeAgent}}));
    expectManaged(agent(), kEnabled);
    EXPECT_EQ(agent()->generation(), generation + 1);
    EXPECT_EQ(inForce(), kEnabled);
    expectAsUnmanaged(agent("other"), kEnabled | kAllowed);
    daemon_.restart();
    expectManaged(agent(), kEnabled);
    EXPECT_EQ(set(std::nullopt).code, KSWErrorNone);
    expectAsUnmanaged(agent(), kEnabled | kAllowed);
    EXPECT_EQ(inForce(), kEnabled | kAllowed);
    daemon_.restart();
    expectAsUnmanaged(agent(), kEnabled | kAllowed);
}

TEST_F(ManagedItems, ThatComeLaterStartUnderTheRule) {
    ASSERT_EQ(set(kForbidAgent, false).code, KSWErrorNone);
    EXPECT_EQ(inForce(), kEnabled);
    EXPECT_EQ(agent(), nullptr);
    daemon_.enterAgent(owner_, "my.agent", owner_.uid);
    expectManaged(agent(), kEnabled);
    EXPECT_FALSE(agent()->container()->isManaged());
    ASSERT_EQ(set(Dictionary()).code, KSWErrorNone);
    expectAsUnmanaged(agent(), kEnabled | kAllowed);
}

TEST_F(ManagedItems, ThatAreThereWaitForTheNextChangeOfARuleThatIsNotImmediate) {
    daemon_.enterAgent(owner_, "my.agent", owner_.uid);
    ASSERT_EQ(set(kForbidAgent, false).code, KSWErrorNone);
    expectAsUnmanaged(agent(), kEnabled | kAllowed);
    daemon_.restart();
    expectManaged(agent(), kEnabled);
}

TEST_F(ManagedItems, AreNotTheUsersToChangeWhereTheRuleDecides) {
    daemon_.enterAgent(owner_, "my.agent", owner_.uid);
    ASSERT_EQ(set(kForbidAgent).code, KSWErrorNone);
    EXPECT_EQ(choose(kEnabled | kAllowed | kHidden), KSWErrorRecordUpdated);
    expectManaged(agent(), kEnabled | kHidden);
    EXPECT_EQ(choose(kAllowed | kHidden), KSWErrorRecordUpdated);
    expectManaged(agent(), kHidden);
    ASSERT_EQ(set(std::nullopt).code, KSWErrorNone);
    // What the rule decided is as it was before, the rest as it was chosen meanwhile.
    expectAsUnmanaged(agent(), kAllowed | kHidden);
}

TEST_F(ManagedItems, KeepTheChoiceBeneathARuleThatWasLiftedButIsStillInForce) {
    daemon_.enterAgent(owner_, "my.agent", owner_.uid);
    ASSERT_EQ(set(kForbidAgent).code, KSWErrorNone);
    ASSERT_EQ(set(std::nullopt, false).code, KSWErrorNone);
    expectManaged(agent(), kEnabled);
    EXPECT_EQ(choose(kEnabled | kHidden), KSWErrorRecordUpdated);
    expectAsUnmanaged(agent(), kEnabled | kAllowed | kHidden);
}

TEST_F(ManagedItems, ThatTheirUserForbadeAreAllowedByARuleAndForbiddenAgainAfterwards) {
    daemon_.enterAgent(owner_, "my.agent", owner_.uid);
    ASSERT_EQ(choose(0), KSWErrorRecordUpdated);
    ASSERT_EQ(set(payloadOf({rule("Identifier", "8.my.agent", "Allow")})).code, KSWErrorNone);
    expectManaged(agent(), kEnabled | kAllowed);
    EXPECT_EQ(inForce(), kEnabled | kAllowed);
    ASSERT_EQ(set(payloadOf({rule("Label", "other", "Allow")})).code, KSWErrorNone);
    expectAsUnmanaged(agent(), 0);
}

TEST_F(ManagedItems, AreStillForbiddenWhenOneRuleAllowsAndAnotherDoesNot) {
    daemon_.enterAgent(owner_, "my.agent", owner_.uid);
    ASSERT_EQ(set(payloadOf({rule("LabelPrefix", "my.", "Allow"), rule("Label", "my.agent", "Hide")})).code,
              KSWErrorNone);
    expectManaged(agent(), kEnabled | kAllowed | kHidden);
    ASSERT_EQ(set(kForbidAgent, true, "com.example.second").code, KSWErrorNone);
    expectManaged(agent(), kEnabled | kHidden);
    ASSERT_EQ(set(std::nullopt, true, "com.example.second").code, KSWErrorNone);
    expectManaged(agent(), kEnabled | kAllowed | kHidden);
    ASSERT_EQ(set(std::nullopt).code, KSWErrorNone);
    expectAsUnmanaged(agent(), kEnabled | kAllowed);
}

TEST_F(ManagedItems, AreFoundByEverythingThatARuleLooksAt) {
    const ItemPointer given = anAgent("com.example.tool");
    given->setDisposition(kEnabled | kAllowed);
    ASSERT_EQ(requests_.add(owner_, given, owner_.uid).code, KSWErrorNone);
    const ItemPointer record = copyOf(agent("com.example.tool"));
    record->setTeamIdentifier("TEAM");
    record->setDeveloperName("Maker");
    const auto rulingOf = [&](std::string_view match, std::string_view value) {
        const auto payload = std::make_shared<const Dictionary>(payloadOf({rule(match, value, "Hide")}));
        return (*Managed::of({{"x", payload}}, {}))->rulingFor(owner_.uid, *record).hides;
    };
    EXPECT_TRUE(rulingOf("Identifier", "8.com.example.tool"));
    EXPECT_FALSE(rulingOf("Identifier", "com.example.tool"));
    EXPECT_TRUE(rulingOf("Label", "com.example.tool"));
    EXPECT_FALSE(rulingOf("Label", "com.example."));
    EXPECT_TRUE(rulingOf("LabelPrefix", "com.example."));
    EXPECT_TRUE(rulingOf("LabelPrefix", "com.example.tool"));
    EXPECT_FALSE(rulingOf("LabelPrefix", "com.example.tools"));
    EXPECT_TRUE(rulingOf("BundleIdentifier", "com.example.tool"));
    EXPECT_FALSE(rulingOf("BundleIdentifier", "com.example"));
    EXPECT_TRUE(rulingOf("TeamIdentifier", "TEAM"));
    EXPECT_FALSE(rulingOf("TeamIdentifier", "TEA"));
    EXPECT_TRUE(rulingOf("Developer", "Maker"));
    EXPECT_FALSE(rulingOf("Developer", "Unknown Developer"));
}

TEST_F(ManagedItems, OfADeveloperStandUnderTheRuleTogetherWithHim) {
    daemon_.enterAgent(owner_, "my.agent", owner_.uid);
    ASSERT_EQ(set(payloadOf({rule("Developer", "Unknown Developer", "Disallow")})).code, KSWErrorNone);
    expectManaged(agent(), kEnabled);
    expectManaged(daemon_.record(owner_.uid, "Unknown Developer"), 0);
    ASSERT_EQ(set(std::nullopt).code, KSWErrorNone);
    expectAsUnmanaged(daemon_.record(owner_.uid, "Unknown Developer"), kAllowed);
}

TEST_F(ManagedItems, StayManagedWhenTheyAreRegisteredAnew) {
    daemon_.enterAgent(owner_, "my.agent", owner_.uid);
    ASSERT_EQ(set(kForbidAgent).code, KSWErrorNone);
    Dictionary job = jobNamed("my.agent");
    job.insert_or_assign(std::string(KSWConfigExecutablePath), Value("/opt/other"));
    const Answer again =
        daemon_.ask(&Operations::enter, owner_, kLegacyAgent, kNoURL, jobURL("my.agent"), job, owner_.uid);
    EXPECT_EQ(again.code, KSWErrorRecordUpdated);
    expectManaged(agent(), kEnabled);
    ASSERT_EQ(set(std::nullopt).code, KSWErrorNone);
    expectAsUnmanaged(agent(), kEnabled | kAllowed);
}

TEST_F(ManagedItems, ArePermittedWhateverTheRestOfTheirFamilyIs) {
    daemon_.enterDaemon(kRoot, "my.daemon");
    const auto disposition = [&] {
        return daemon_.askOf(&Operations::effectiveDisposition, kRoot, kLegacyDaemon, "my.daemon", 0).disposition;
    };
    EXPECT_EQ(disposition(), kEnabled);
    ASSERT_EQ(set(payloadOf({rule("Label", "my.daemon", "Allow")})).code, KSWErrorNone);
    EXPECT_EQ(disposition(), kEnabled | kAllowed);
    ASSERT_EQ(set(std::nullopt).code, KSWErrorNone);
    EXPECT_EQ(disposition(), kEnabled);
}

TEST_F(ManagedItems, AreLeftAsTheyAreByWhatIsNoRule) {
    daemon_.enterAgent(owner_, "my.agent", owner_.uid);
    const Value unusable[] = {Value(1),
                              rule("Name", "my.agent", "Disallow"),
                              rule("Label", "my.agent", "Forbid"),
                              rule("Label", "", "Disallow"),
                              rule("Label", std::string(limits::kFieldMax + 1, 'x'), "Disallow"),
                              Dictionary{{"Match", Value("Label")}, {"Value", Value("my.agent")}}};
    for (const Value& value : unusable) {
        EXPECT_EQ(set(payloadOf({rule("Label", "my.agent", "Disallow"), value})).code, KSWErrorInvalidParameter);
    }
    EXPECT_EQ(set(Dictionary{{"Rules", Value("none")}}).code, KSWErrorInvalidParameter);
    EXPECT_EQ(set(Dictionary{{"Key", Value()}}).code, KSWErrorInvalidParameter);
    EXPECT_EQ(set(kForbidAgent, true, std::nullopt).code, KSWErrorInvalidParameter);
    EXPECT_EQ(set(kForbidAgent, true, "").code, KSWErrorInvalidParameter);
    EXPECT_EQ(set(kForbidAgent, true, std::string(Housekeeping::kPayloadIdentifierMax + 1, 'x')).code,
              KSWErrorInvalidParameter);
    expectAsUnmanaged(agent(), kEnabled | kAllowed);
    EXPECT_EQ(payload(), std::nullopt);
}

TEST_F(ManagedItems, MayHaveAsManyRulesAndNoMore) {
    const auto rules = [](std::size_t count) {
        return std::make_shared<const Dictionary>(payloadOf(Array(count, rule("Label", "x", "Hide"))));
    };
    EXPECT_TRUE(Managed::of({{"x", rules(Managed::kRulesMax)}}, {}).ok());
    EXPECT_FALSE(Managed::of({{"x", rules(Managed::kRulesMax)}, {"y", rules(1)}}, {}).ok());
    Payloads payloads;
    while (payloads.size() < Managed::kPayloadsMax) {
        payloads.emplace(std::to_string(payloads.size()), rules(0));
    }
    EXPECT_TRUE(Managed::of(payloads, {}).ok());
    payloads.emplace("one more", rules(0));
    EXPECT_FALSE(Managed::of(payloads, {}).ok());
}

TEST_F(ManagedItems, AreSaidToBeSoInAPayloadThatIsKeptWhole) {
    Dictionary given = kForbidAgent;
    given.emplace("Organization", Value("Example"));
    given.emplace("When", Value(Date{5}));
    given.emplace("Bytes", Value(Data{1, 2}));
    ASSERT_EQ(set(given).code, KSWErrorNone);
    EXPECT_EQ(payload(), given);
    daemon_.restart();
    EXPECT_EQ(payload(), given);
    ASSERT_EQ(set(std::nullopt).code, KSWErrorNone);
    EXPECT_EQ(payload(), std::nullopt);
}

TEST_F(ManagedItems, AreLeftAsTheyAreWhenTheirPayloadIsDamaged) {
    daemon_.enterAgent(owner_, "my.agent", owner_.uid);
    ASSERT_EQ(set(kForbidAgent).code, KSWErrorNone);
    daemon_.damage("UPDATE payloads SET payload = x'00'");
    expectManaged(agent(), kEnabled);
    EXPECT_EQ(payload(), std::nullopt);
}

TEST_F(ManagedItems, AreForbiddenAllOrNoneWhenTheDiskTakesNothing) {
    daemon_.enterAgent(owner_, "my.agent", owner_.uid);
    daemon_.restartWithPages(1);
    Dictionary large = kForbidAgent;
    large.emplace("Large", Value(std::string(500'000, 'x')));
    EXPECT_EQ(set(large).code, KSWErrorGeneric);
    expectAsUnmanaged(agent(), kEnabled | kAllowed);
    EXPECT_EQ(payload(), std::nullopt);
}

/// Jobs that device management installs.
class ManagedJobs : public ManagedItems {
protected:
    /// A job's file in a folder of this name.
    std::string write(std::string_view folder, std::string_view label) {
        std::filesystem::create_directories(daemon_.folder().at(std::string(folder)));
        return daemon_.writeJob(std::string(folder) + "/" + std::string(label) + ".plist", label).path();
    }
    std::int64_t submit(const std::optional<std::string>& path) {
        return daemon_.housekeeping().perform(&Housekeeping::submitJob, Rule::Manage, kRoot, path).code;
    }
    std::int64_t removeAt(const std::optional<std::string>& path) {
        return daemon_.housekeeping().perform(&Housekeeping::removeJobAtPath, Rule::Manage, kRoot, path).code;
    }
    std::int64_t removeNamed(const std::optional<std::string>& label) {
        return daemon_.housekeeping().perform(&Housekeeping::removeJobWithLabel, Rule::Manage, kRoot, label).code;
    }
};

TEST_F(ManagedJobs, AreRegisteredAsManagedDaemonsAndAgentsOfTheSystem) {
    EXPECT_EQ(submit(write("daemons", "my.daemon")), KSWErrorNone);
    EXPECT_EQ(submit(write("ManagedAgents", "my.agent")), KSWErrorNone);
    daemon_.restart();
    const ItemPointer job = daemon_.record(kEveryUser, "16.my.daemon");
    expectManaged(job, kEnabled | kAllowed);
    EXPECT_EQ(KSWItemTypeDescription(job->type()), "managed legacy daemon");
    expectManaged(daemon_.record(kEveryUser, "8.my.agent"), kEnabled | kAllowed);
}

TEST_F(ManagedJobs, StayManagedWhenTheServiceManagerRegistersThem) {
    const std::string path = write("daemons", "my.daemon");
    ASSERT_EQ(submit(path), KSWErrorNone);
    const URL url = URL::fileURL(path);
    daemon_.ask(&Operations::enter, kRoot, kLegacyDaemon, kNoURL, url, jobNamed("my.daemon"), 0);
    const ItemPointer job = daemon_.record(kEveryUser, "16.my.daemon");
    expectManaged(job, kEnabled | kAllowed);
    EXPECT_EQ(job->executablePath(), "/opt/tool");
    EXPECT_EQ(KSWItemTypeDescription(job->type()), "managed legacy daemon");
}

TEST_F(ManagedJobs, AreRemovedByPathAndByLabel) {
    const std::string path = write("daemons", "my.daemon");
    ASSERT_EQ(submit(path), KSWErrorNone);
    EXPECT_EQ(submit(path), KSWErrorNone);
    EXPECT_EQ(removeAt(path), KSWErrorNone);
    EXPECT_EQ(daemon_.record(kEveryUser, "16.my.daemon"), nullptr);
    EXPECT_EQ(removeAt(path), KSWErrorRecordNotFound);
    ASSERT_EQ(submit(path), KSWErrorNone);
    daemon_.restart();
    EXPECT_EQ(removeNamed("my.daemon"), KSWErrorNone);
    EXPECT_EQ(removeNamed("my.daemon"), KSWErrorRecordNotFound);
    EXPECT_TRUE(daemon_.registry().records().users().empty());
    EXPECT_EQ(removeNamed(std::nullopt), KSWErrorInvalidParameter);
    EXPECT_EQ(removeAt(std::nullopt), KSWErrorInvalidParameter);
}

TEST_F(ManagedJobs, ThatWereThereBeforeAreAsTheyWereWhenTheyAreManagedNoLonger) {
    daemon_.enterDaemon(kRoot, "my.daemon");
    const std::string path = write("daemons", "my.daemon");
    ASSERT_EQ(submit(path), KSWErrorNone);
    ASSERT_EQ(submit(path), KSWErrorNone);
    expectManaged(daemon_.record(kEveryUser, "16.my.daemon"), kEnabled | kAllowed);
    ASSERT_EQ(removeAt(path), KSWErrorNone);
    const ItemPointer job = daemon_.record(kEveryUser, "16.my.daemon");
    expectAsUnmanaged(job, kEnabled);
    EXPECT_EQ(job->type(), kLegacyDaemon);
}

TEST_F(ManagedJobs, AreForbiddenByARuleAllTheSame) {
    ASSERT_EQ(set(payloadOf({rule("Label", "my.daemon", "Disallow")})).code, KSWErrorNone);
    ASSERT_EQ(submit(write("daemons", "my.daemon")), KSWErrorNone);
    expectManaged(daemon_.record(kEveryUser, "16.my.daemon"), kEnabled);
}

TEST_F(ManagedJobs, HaveAFileThatDescribesAJobNobodyElseHas) {
    EXPECT_EQ(submit(std::nullopt), KSWErrorInvalidParameter);
    EXPECT_EQ(submit("daemons/my.plist"), KSWErrorInvalidParameter);
    EXPECT_EQ(submit(daemon_.folder().at("none.plist")), KSWErrorRecordNotFound);
    EXPECT_EQ(submit(daemon_.folder().writeFile("text.plist", "no property list")), KSWErrorInvalidParameter);
    ASSERT_EQ(submit(write("daemons", "my.daemon")), KSWErrorNone);
    EXPECT_EQ(submit(write("others", "my.daemon")), KSWErrorRecordExists);
}

}  // namespace
}  // namespace ksw::daemon::test
