#include "platform/host/standard_error.h"

#include <gtest/gtest.h>

#include <array>

#include <fcntl.h>

#include "platform/base/limits.h"
#include "platform/host/activity.h"
#include "platform/host/log_sinks.h"
#include "platform/host/printable.h"
#include "platform/host/sys.h"
#include "tests/support/environment.h"
#include "tests/support/sys_faults.h"
#include "tests/support/temp_folder.h"

namespace ksw::host {
namespace {

struct Pipe {
    Pipe() {
        std::array<int, 2> fds{};
        EXPECT_EQ(::pipe2(fds.data(), O_CLOEXEC), 0);
        reader.reset(fds[0]);
        writer.reset(fds[1]);
    }
    std::string read() const {
        std::string text(64 * 1024, '\0');
        EXPECT_EQ(::fcntl(reader.get(), F_SETFL, O_NONBLOCK), 0);
        const auto transfer = sys::read(reader.get(), text.data(), text.size());
        text.resize(transfer ? transfer->bytes : 0);
        return text;
    }
    UniqueFd reader;
    UniqueFd writer;
};

class StandardError : public testing::Test {
protected:
    ~StandardError() override { setLogSettings(LogSettings::fromEnvironment()); }

    void use(bool isVerbose, bool showsPrivate = false) {
        LogSettings settings;
        settings.journalPath = folder_.at("none");
        settings.isVerbose = isVerbose;
        settings.showsPrivate = showsPrivate;
        settings.standardError = pipe_.writer.get();
        setLogSettings(settings);
    }

    test::TempFolder folder_;
    Pipe pipe_;
};

TEST_F(StandardError, GetsErrorsAndFaultsWhenThereIsNoJournal) {
    use(false);
    mainLog.notice("not this");
    const ActivityScope scope("KSWManager.addItem");
    mainLog.error("%s: %@", "addItem", std::string("x"));
    EXPECT_EQ(pipe_.read(), "kestrelwood[main] error (KSWManager.addItem): addItem: <private>\n");
}

TEST_F(StandardError, GetsEveryLevelWhenTheSettingsAskForIt) {
    use(true, true);
    importLog.debug("%@", std::string("x"));
    EXPECT_EQ(pipe_.read(), "kestrelwood[import] debug: x\n");
}

TEST_F(StandardError, NeverGetsRawControlCharacters) {
    use(true, true);
    mainLog.info("%@", std::string("a\x1b[2J\nb\x7f\xc2\x9b\xff"));
    EXPECT_EQ(pipe_.read(), "kestrelwood[main] info: a\\x1b[2J\\nb\\x7f\\xc2\\x9b\\xff\n");
}

TEST_F(StandardError, GetsALineCutToItsLimit) {
    use(true);
    mainLog.info("%{public}@", std::string(2 * limits::kLogFieldMax, 'x'));
    EXPECT_EQ(pipe_.read().size(), limits::kLogFieldMax + 1);
}

TEST_F(StandardError, WhoseReaderIsGoneRaisesNoSignal) {
    use(false);
    pipe_.reader.reset();
    const std::uint64_t before = droppedLogLines();
    mainLog.error("x");
    EXPECT_EQ(droppedLogLines(), before + 1);
}

TEST_F(StandardError, WhoseReaderDoesNotReadHoldsUpALineForALittleWhileOnly) {
    use(false);
    EXPECT_EQ(::fcntl(pipe_.writer.get(), F_SETFL, O_NONBLOCK), 0);
    const std::string filling(4096, 'x');
    while (::write(pipe_.writer.get(), filling.data(), filling.size()) > 0) {
    }
    EXPECT_EQ(::fcntl(pipe_.writer.get(), F_SETFL, 0), 0);
    const auto start = std::chrono::steady_clock::now();
    mainLog.error("x");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(500));
}

TEST_F(StandardError, GetsWholeLinesThoughItTakesFewBytesAtATime) {
    use(false);
    test::SysFaults faults;
    faults.shorten(sys::Call::Write, 1);
    faults.interrupt(sys::Call::Write, 2);
    mainLog.error("x");
    EXPECT_EQ(pipe_.read(), "kestrelwood[main] error: x\n");
}

TEST(LogSettings, ComeFromTheEnvironment) {
    const test::TempFolder folder;
    const test::ScopedVariable root("KESTRELWOOD_ROOT", folder.path());
    const test::ScopedVariable level("KESTRELWOOD_LOG", "debug");
    const test::ScopedVariable shown("KESTRELWOOD_LOG_PRIVATE", "1");
    const LogSettings settings = LogSettings::fromEnvironment();
    EXPECT_EQ(settings.journalPath, folder.at("run/systemd/journal/socket"));
    EXPECT_TRUE(settings.isVerbose);
    EXPECT_TRUE(settings.showsPrivate);
}

TEST(LogSettings, AreQuietAndPrivateByDefault) {
    const test::ScopedVariable level("KESTRELWOOD_LOG", std::nullopt);
    const test::ScopedVariable shown("KESTRELWOOD_LOG_PRIVATE", "0");
    EXPECT_FALSE(LogSettings::fromEnvironment().isVerbose);
    EXPECT_FALSE(LogSettings::fromEnvironment().showsPrivate);
}

TEST(PrintableText, KeepsWellFormedCharactersOnly) {
    EXPECT_EQ(printable("caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\xa6\x85"), "caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\xa6\x85");
    EXPECT_EQ(printable("\xc0\xaf"), "\\xc0\\xaf");
    EXPECT_EQ(printable("\xe0\x80\x80"), "\\xe0\\x80\\x80");
    EXPECT_EQ(printable("\xed\xa0\x80"), "\\xed\\xa0\\x80");
    EXPECT_EQ(printable("\xf4\x90\x80\x80"), "\\xf4\\x90\\x80\\x80");
    EXPECT_EQ(printable("\xf0\x9f"), "\\xf0\\x9f");
    EXPECT_EQ(printable("a\tb"), "a\\tb");
}

TEST(CutText, EndsBetweenCharacters) {
    EXPECT_EQ(cutText("abc", 3), "abc");
    EXPECT_EQ(cutText("abc", 2), "ab");
    EXPECT_EQ(cutText("a\xe2\x82\xac", 3), "a");
    EXPECT_EQ(cutText("a\xe2\x82\xac", 4), "a\xe2\x82\xac");
    EXPECT_EQ(cutText("\x80\x80\x80\x80\x80\x80", 5).size(), 5U);
}

}  // namespace
}  // namespace ksw::host
