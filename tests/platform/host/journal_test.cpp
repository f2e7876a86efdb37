#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>

#include <sys/mman.h>

#include "platform/base/limits.h"
#include "platform/host/activity.h"
#include "platform/host/journal.h"
#include "platform/host/log_sinks.h"
#include "platform/host/sys.h"
#include "tests/support/sys_faults.h"
#include "tests/support/temp_folder.h"

namespace ksw::host {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

/// A journal's socket that a test reads.
class FakeJournal {
public:
    explicit FakeJournal(std::string path) : path_(std::move(path)) { start(); }

    void start() {
        fd_ = *sys::socket(AF_UNIX, SOCK_DGRAM);
        EXPECT_TRUE(sys::bindUnix(fd_.get(), path_).ok());
    }
    void stop() {
        fd_.reset();
        EXPECT_TRUE(sys::unlink(path_).ok());
    }
    int fd() const { return fd_.get(); }
    const std::string& path() const { return path_; }

    /// The next record; empty when none waits.
    std::string read() const {
        std::string record(512 * 1024, '\0');
        const auto transfer = sys::receive(fd_.get(), record.data(), record.size(), MSG_DONTWAIT);
        record.resize(transfer && !transfer->wouldBlock ? transfer->bytes : 0);
        return record;
    }

private:
    std::string path_;
    UniqueFd fd_;
};

class AJournal : public testing::Test {
protected:
    AJournal() : folder_(), fake_(folder_.at("socket")) {
        LogSettings settings;
        settings.journalPath = fake_.path();
        settings.standardError = devNull_.get();
        setLogSettings(settings);
    }
    ~AJournal() override { setLogSettings(LogSettings::fromEnvironment()); }

    UniqueFd devNull_{*sys::open("/dev/null", O_WRONLY)};
    test::TempFolder folder_;
    FakeJournal fake_;
};

TEST_F(AJournal, GetsTheFieldsOfALine) {
    {
        const ActivityScope scope("KSWManager.addItem");
        mainLog.error("%s: error: %{public}@, url=%@", "addItem", std::string("bad"), std::string("file:///x"));
    }
    const std::string record = fake_.read();
    EXPECT_THAT(record, StartsWith("MESSAGE=addItem: error: bad, url=<private>\nPRIORITY=3\n"));
    EXPECT_THAT(record, HasSubstr("\nSYSLOG_IDENTIFIER=" + std::string(::program_invocation_short_name) + "\n"));
    EXPECT_THAT(record, HasSubstr("\nKSW_SUBSYSTEM=com.velmont.kestrelwood\nKSW_CATEGORY=main\n"));
    EXPECT_THAT(record, HasSubstr("\nKSW_FORMAT=%s: error: %{public}@, url=%@\n"));
    EXPECT_THAT(record, HasSubstr("\nKSW_ACTIVITY_ID="));
    EXPECT_THAT(record, EndsWith("\nKSW_ACTIVITY=KSWManager.addItem\n"));
}

TEST_F(AJournal, GetsNoActivityOutsideOfAny) {
    mainLog.fault("x");
    const std::string record = fake_.read();
    EXPECT_THAT(record, HasSubstr("\nPRIORITY=2\n"));
    EXPECT_THAT(record, Not(HasSubstr("KSW_ACTIVITY")));
}

TEST_F(AJournal, TakesInfoAndAboveButNotDebug) {
    mainLog.debug("debug");
    EXPECT_FALSE(Log::isOn(LogLevel::Debug));
    mainLog.info("info");
    EXPECT_THAT(fake_.read(), StartsWith("MESSAGE=info\nPRIORITY=6\n"));
    mainLog.notice("notice");
    EXPECT_THAT(fake_.read(), StartsWith("MESSAGE=notice\nPRIORITY=5\n"));
}

TEST_F(AJournal, GetsPrivateValuesWhenTheSettingsShowThem) {
    LogSettings settings;
    settings.journalPath = fake_.path();
    settings.showsPrivate = true;
    setLogSettings(settings);
    mainLog.error("url=%@", std::string("file:///x"));
    EXPECT_THAT(fake_.read(), StartsWith("MESSAGE=url=file:///x\n"));
}

TEST_F(AJournal, IsFoundAgainAfterARestart) {
    mainLog.error("before");
    fake_.stop();
    mainLog.error("lost");
    fake_.start();
    mainLog.error("after");
    EXPECT_THAT(fake_.read(), StartsWith("MESSAGE=after\n"));
}

TEST_F(AJournal, ThatDoesNotReadHoldsUpALineTenMillisecondsAtMost) {
    const std::uint64_t droppedBefore = droppedLogLines();
    const auto start = std::chrono::steady_clock::now();
    int lines = 0;
    while (droppedLogLines() == droppedBefore && lines < 10'000) {
        mainLog.info("line %d", lines++);
    }
    EXPECT_GT(droppedLogLines(), droppedBefore);
    const auto last = std::chrono::steady_clock::now();
    mainLog.info("one more");
    const auto took = std::chrono::steady_clock::now() - last;
    EXPECT_LT(took, std::chrono::milliseconds(limits::kLogSendMilliseconds + 200))
        << "after " << lines << " lines, " << (last - start).count();
    EXPECT_GE(took, std::chrono::milliseconds(limits::kLogSendMilliseconds - 1));
}

TEST_F(AJournal, GetsARecordThatNoDatagramHoldsAsASealedFile) {
    test::SysFaults faults;
    faults.failNth(sys::Call::SendMsg, 1, EMSGSIZE);
    mainLog.error("large");
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control{};
    msghdr message{};
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    ASSERT_TRUE(sys::receiveMessage(fake_.fd(), message, MSG_DONTWAIT).ok());
    const cmsghdr* header = CMSG_FIRSTHDR(&message);
    ASSERT_NE(header, nullptr);
    int raw = -1;
    std::memcpy(&raw, CMSG_DATA(header), sizeof raw);
    const UniqueFd file(raw);
    EXPECT_EQ(::fcntl(file.get(), F_GET_SEALS), F_SEAL_SEAL | F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE);
    std::array<char, 64> content{};
    ASSERT_GT(::pread(file.get(), content.data(), content.size() - 1, 0), 0);
    EXPECT_THAT(content.data(), StartsWith("MESSAGE=large\nPRIORITY=3\n"));
}

TEST(AJournalField, WithALineBreakIsWrittenWithItsLength) {
    std::string record;
    appendJournalField(record, "MESSAGE", "a\nMESSAGE=b");
    EXPECT_EQ(record, std::string("MESSAGE\n\x0b\0\0\0\0\0\0\0a\nMESSAGE=b\n", 28));
}

TEST(AJournalField, IsCutAtItsLimit) {
    std::string record;
    appendJournalField(record, "A", std::string(limits::kLogFieldMax, 'x'));
    EXPECT_EQ(record.size(), limits::kLogFieldMax + 3);
    record.clear();
    appendJournalField(record, "A", std::string(limits::kLogFieldMax + 1, 'x'));
    EXPECT_EQ(record.size(), limits::kLogFieldMax + 3);
}

TEST(AHostWithoutAJournal, LogsErrorsAndFaultsOnly) {
    const test::TempFolder folder;
    LogSettings settings;
    settings.journalPath = folder.at("none");
    setLogSettings(settings);
    EXPECT_FALSE(Log::isOn(LogLevel::Notice));
    EXPECT_TRUE(Log::isOn(LogLevel::Error));
    EXPECT_TRUE(Log::isOn(LogLevel::Fault));
    setLogSettings(LogSettings::fromEnvironment());
}

}  // namespace
}  // namespace ksw::host
