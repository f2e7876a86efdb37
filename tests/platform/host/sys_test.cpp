#include "platform/host/sys.h"

#include <gtest/gtest.h>

#include <array>
#include <filesystem>

#include "tests/support/sys_faults.h"
#include "tests/support/temp_folder.h"

namespace ksw::host::sys {
namespace {

using std::chrono::milliseconds;
using test::SysFaults;

std::string textOf(const Error& error) {
    return std::string(error.localizedDescription());
}

bool isCloseOnExec(int fd) {
    return (::fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0;
}

TEST(ACallThatFails, NamesItselfAndItsArgument) {
    EXPECT_EQ(textOf(callError(ECONNREFUSED, "connect", "/run/x.sock")),
              "connect(\"/run/x.sock\"): Connection refused");
    EXPECT_EQ(textOf(callError(EBADF, "recv", 7)), "recv(7): Bad file descriptor");
    EXPECT_EQ(textOf(callError(EMFILE, "socket")), "socket(): Too many open files");
    EXPECT_EQ(textOf(callError(9999, "socket")), "socket(): error 9999");
    EXPECT_TRUE(isErrno(callError(EMFILE, "socket"), EMFILE));
}

TEST(AnInterruptedCall, IsMadeAgain) {
    SysFaults faults;
    faults.interrupt(Call::Socket, 3);
    EXPECT_TRUE(socket(AF_UNIX, SOCK_STREAM).ok());
    EXPECT_EQ(faults.count(Call::Socket), 4U);
}

TEST(TheNthCall, CanBeMadeToFail) {
    SysFaults faults;
    faults.failNth(Call::Socket, 2, EMFILE);
    EXPECT_TRUE(socket(AF_UNIX, SOCK_STREAM).ok());
    EXPECT_EQ(socket(AF_UNIX, SOCK_STREAM).error().code(), EMFILE);
    EXPECT_TRUE(socket(AF_UNIX, SOCK_STREAM).ok());
}

TEST(EveryDescriptor, IsCloseOnExec) {
    const test::TempFolder folder;
    const auto pair = socketPair(SOCK_STREAM);
    EXPECT_TRUE(isCloseOnExec(pair->first.get()) && isCloseOnExec(pair->second.get()));
    EXPECT_TRUE(isCloseOnExec(socket(AF_UNIX, SOCK_STREAM)->get()));
    EXPECT_TRUE(isCloseOnExec(epollCreate()->get()));
    EXPECT_TRUE(isCloseOnExec(eventDescriptor()->get()));
    EXPECT_TRUE(isCloseOnExec(timerDescriptor()->get()));
    EXPECT_TRUE(isCloseOnExec(open(folder.at("a"), O_CREAT | O_RDWR)->get()));
    EXPECT_TRUE(isCloseOnExec(openWithoutLinks(folder.at("a"), O_RDONLY)->get()));
    EXPECT_TRUE(isCloseOnExec(memoryFile("m")->get()));
    EXPECT_TRUE(isCloseOnExec(processDescriptor(::getpid())->get()));
}

class AListener : public testing::Test {
protected:
    void listenAt(const std::string& path, int backlog = 8) {
        ASSERT_TRUE(bindUnix(listener_.get(), path).ok());
        ASSERT_TRUE(sys::listen(listener_.get(), backlog).ok());
    }
    static Status dial(const std::string& path, milliseconds timeout = milliseconds(5'000)) {
        const UniqueFd fd = *socket(AF_UNIX, SOCK_STREAM);
        return connectUnix(fd.get(), path, timeout);
    }

    test::TempFolder folder_;
    UniqueFd listener_{*socket(AF_UNIX, SOCK_STREAM)};
};

TEST_F(AListener, IsReachedAtItsPath) {
    listenAt(folder_.at("s"));
    const UniqueFd client = *socket(AF_UNIX, SOCK_STREAM);
    ASSERT_TRUE(connectUnix(client.get(), folder_.at("s"), milliseconds(5'000)).ok());
    const auto accepted = accept(listener_.get(), true);
    ASSERT_TRUE(accepted.ok() && accepted->has_value());
    EXPECT_TRUE(isCloseOnExec((*accepted)->get()));
    EXPECT_EQ(send(client.get(), "ping", 4)->bytes, 4U);
    std::array<char, 8> buffer{};
    EXPECT_EQ(receive((*accepted)->get(), buffer.data(), buffer.size())->bytes, 4U);
    EXPECT_TRUE(receive((*accepted)->get(), buffer.data(), buffer.size())->wouldBlock);
}

TEST_F(AListener, IsReachedAtAPathLongerThanASocketAddress) {
    const std::string path = folder_.makeFolder(std::string(150, 'd')) + "/s";
    listenAt(path);
    EXPECT_TRUE(dial(path).ok());
}

TEST_F(AListener, IsNotReachedThroughALink) {
    folder_.makeFolder("real");
    listenAt(folder_.at("real/s"));
    std::filesystem::create_symlink("real/s", folder_.at("link"));
    std::filesystem::create_directory_symlink("real", folder_.at("folder"));
    EXPECT_EQ(dial(folder_.at("link")).error().code(), ELOOP);
    EXPECT_EQ(dial(folder_.at("folder/s")).error().code(), ELOOP);
    EXPECT_TRUE(dial(folder_.at("real/s")).ok());
}

TEST_F(AListener, ThatIsMissingOrGoneIsAnErrorThatNamesThePath) {
    EXPECT_EQ(textOf(dial(folder_.at("s")).error()),
              "connect(\"" + folder_.at("s") + "\"): No such file or directory");
    listenAt(folder_.at("s"));
    listener_.reset();
    EXPECT_EQ(textOf(dial(folder_.at("s")).error()), "connect(\"" + folder_.at("s") + "\"): Connection refused");
}

TEST_F(AListener, WithAFullBacklogIsWaitedForNoLongerThanAsked) {
    listenAt(folder_.at("s"), 0);
    const UniqueFd first = *socket(AF_UNIX, SOCK_STREAM);
    ASSERT_TRUE(connectUnix(first.get(), folder_.at("s"), milliseconds(5'000)).ok());
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(dial(folder_.at("s"), milliseconds(50)).error().code(), ETIMEDOUT);
    EXPECT_GE(std::chrono::steady_clock::now() - start, milliseconds(50));
}

TEST_F(AListener, IsReachedThoughTheDiallingIsInterrupted) {
    listenAt(folder_.at("s"));
    SysFaults faults;
    faults.interrupt(Call::Connect, 2);
    EXPECT_TRUE(dial(folder_.at("s")).ok());
}

TEST_F(AListener, HasNothingToAcceptWhenNobodyDials) {
    UniqueFd nonBlocking = *socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK);
    ASSERT_TRUE(bindUnix(nonBlocking.get(), folder_.at("n")).ok());
    ASSERT_TRUE(sys::listen(nonBlocking.get(), 1).ok());
    const auto accepted = accept(nonBlocking.get(), true);
    EXPECT_TRUE(accepted.ok());
    EXPECT_FALSE(accepted->has_value());
    SysFaults faults;
    faults.failNth(Call::Accept, 1, EMFILE);
    EXPECT_EQ(accept(nonBlocking.get(), true).error().code(), EMFILE);
}

class APair : public testing::Test {
protected:
    APair() {
        auto pair = socketPair(SOCK_STREAM);
        left_ = std::move(pair->first);
        right_ = std::move(pair->second);
    }
    UniqueFd left_;
    UniqueFd right_;
};

TEST_F(APair, WhoseOtherEndIsGoneRaisesNoSignal) {
    right_.reset();
    EXPECT_EQ(send(left_.get(), "x", 1).error().code(), EPIPE);
    msghdr message{};
    iovec vector{const_cast<char*>("x"), 1};
    message.msg_iov = &vector;
    message.msg_iovlen = 1;
    EXPECT_EQ(sendMessage(left_.get(), message).error().code(), EPIPE);
    char byte = 0;
    const auto end = receive(left_.get(), &byte, 1);
    EXPECT_TRUE(end.ok() && end->bytes == 0 && !end->wouldBlock);
}

TEST_F(APair, MovesFewBytesWhenTold) {
    SysFaults faults;
    faults.shorten(Call::Send, 2);
    faults.shorten(Call::SendMsg, 3);
    faults.shorten(Call::RecvMsg, 1);
    EXPECT_EQ(send(left_.get(), "abcd", 4)->bytes, 2U);
    std::array<iovec, 2> vectors{iovec{const_cast<char*>("ef"), 2}, iovec{const_cast<char*>("gh"), 2}};
    msghdr message{};
    message.msg_iov = vectors.data();
    message.msg_iovlen = vectors.size();
    EXPECT_EQ(sendMessage(left_.get(), message)->bytes, 3U);
    std::array<char, 8> buffer{};
    iovec room{buffer.data(), buffer.size()};
    msghdr incoming{};
    incoming.msg_iov = &room;
    incoming.msg_iovlen = 1;
    EXPECT_EQ(receiveMessage(right_.get(), incoming)->bytes, 1U);
    EXPECT_EQ(receive(right_.get(), buffer.data() + 1, 7)->bytes, 4U);
    EXPECT_STREQ(buffer.data(), "abefg");
}

TEST_F(APair, EndsWhenShutDown) {
    ASSERT_TRUE(sys::shutdown(left_.get(), SHUT_WR).ok());
    char byte = 0;
    EXPECT_EQ(receive(right_.get(), &byte, 1)->bytes, 0U);
}

TEST_F(APair, IsPolledForTheTimeGivenAndNoLonger) {
    pollfd waiting{left_.get(), POLLIN, 0};
    EXPECT_EQ(*poll({&waiting, 1}, milliseconds(1)), 0U);
    ASSERT_TRUE(send(right_.get(), "x", 1).ok());
    EXPECT_EQ(*poll({&waiting, 1}, std::nullopt), 1U);
    const UniqueFd epoll = *epollCreate();
    ASSERT_TRUE(epollControl(epoll.get(), EPOLL_CTL_ADD, left_.get(), EPOLLIN, 42).ok());
    std::array<epoll_event, 4> events{};
    EXPECT_EQ(*epollWait(epoll.get(), events, std::nullopt), 1U);
    const std::uint64_t data = events[0].data.u64;  // the structure is packed
    EXPECT_EQ(data, 42U);
}

TEST(AWait, ThatIsInterruptedGoesOn) {
    const UniqueFd event = *eventDescriptor();
    ASSERT_TRUE(signalEvent(event.get()).ok());
    SysFaults faults;
    faults.interrupt(Call::Poll, 2);
    pollfd waiting{event.get(), POLLIN, 0};
    EXPECT_EQ(*poll({&waiting, 1}, milliseconds(5'000)), 1U);
}

TEST(AnEvent, IsReadableUntilDrained) {
    const UniqueFd event = *eventDescriptor();
    pollfd waiting{event.get(), POLLIN, 0};
    ASSERT_TRUE(signalEvent(event.get()).ok() && signalEvent(event.get()).ok());
    EXPECT_EQ(*poll({&waiting, 1}, milliseconds(0)), 1U);
    ASSERT_TRUE(drainEvent(event.get()).ok());
    EXPECT_EQ(*poll({&waiting, 1}, milliseconds(0)), 0U);
    EXPECT_TRUE(drainEvent(event.get()).ok());
}

TEST(ATimer, FiresOnceItsDelayIsOver) {
    const UniqueFd timer = *timerDescriptor();
    pollfd waiting{timer.get(), POLLIN, 0};
    ASSERT_TRUE(armTimer(timer.get(), std::chrono::nanoseconds(0)).ok());
    EXPECT_EQ(*poll({&waiting, 1}, milliseconds(5'000)), 1U);
    ASSERT_TRUE(armTimer(timer.get(), std::chrono::hours(1)).ok());
    EXPECT_EQ(*poll({&waiting, 1}, milliseconds(0)), 0U);
    ASSERT_TRUE(armTimer(timer.get(), std::nullopt).ok());
}

TEST(AFileCall, ReportsWhatTheFileSystemSays) {
    const test::TempFolder folder;
    ASSERT_TRUE(makeDirectory(folder.at("d"), 0700).ok());
    EXPECT_EQ(makeDirectory(folder.at("d"), 0700).error().code(), EEXIST);
    const UniqueFd file = *open(folder.at("d/a"), O_CREAT | O_RDWR);
    EXPECT_EQ(write(file.get(), "abc", 3)->bytes, 3U);
    EXPECT_TRUE(syncFile(file.get()).ok() && syncData(file.get()).ok());
    EXPECT_EQ(fileStatus(file.get())->st_size, 3);
    EXPECT_EQ(statx(file.get(), STATX_SIZE)->stx_size, 3U);
    ASSERT_TRUE(changeMode(folder.at("d/a"), 0640).ok());
    EXPECT_EQ(fileStatus(file.get())->st_mode & 0777U, 0640U);
    ASSERT_TRUE(rename(folder.at("d/a"), folder.at("d/b")).ok());
    EXPECT_EQ(*realPath(folder.at("d/../d/b")), folder.at("d/b"));
    EXPECT_TRUE(*isWithoutLinks(folder.at("d/b")));
    ASSERT_TRUE(unlink(folder.at("d/b")).ok());
    EXPECT_EQ(unlink(folder.at("d/b")).error().code(), ENOENT);
    EXPECT_EQ(open(folder.at("d/b"), O_RDONLY).error().code(), ENOENT);
    EXPECT_EQ(readLink(folder.at("d")).error().code(), EINVAL);
}

TEST(AFileCall, RefusesAPathWithANulByte) {
    const std::string path("/tmp\0x", 6);
    EXPECT_EQ(open(path, O_RDONLY).error().code(), EINVAL);
    EXPECT_EQ(openWithoutLinks(path, O_RDONLY).error().code(), EINVAL);
    EXPECT_EQ(unlink(path).error().code(), EINVAL);
    EXPECT_EQ(rename("/tmp", path).error().code(), EINVAL);
}

TEST(OpeningWithoutLinks, RefusesOneAsTheLastComponentOnOlderKernelsAndInOlderSandboxes) {
    const test::TempFolder folder;
    folder.writeFile("a", "");
    std::filesystem::create_symlink("a", folder.at("link"));
    for (const int unknownCall : {ENOSYS, EPERM}) {
        SysFaults faults;
        faults.failNth(Call::Open, 1, unknownCall);
        EXPECT_TRUE(openWithoutLinks(folder.at("a"), O_RDONLY).ok());
        faults.failNth(Call::Open, 1, unknownCall);
        EXPECT_EQ(openWithoutLinks(folder.at("link"), O_RDONLY).error().code(), ELOOP);
        faults.failNth(Call::Open, 1, unknownCall);
        EXPECT_FALSE(*isWithoutLinks(folder.at("a")));
    }
    SysFaults faults;
    faults.failAll(Call::Open, EPERM);
    EXPECT_EQ(openWithoutLinks(folder.at("a"), O_RDONLY).error().code(), EPERM);
}

TEST(OpeningBeneathAFolder, StaysBeneathIt) {
    const test::TempFolder folder;
    folder.writeFile("in/a", "");
    folder.writeFile("out", "");
    std::filesystem::create_symlink("../out", folder.at("in/link"));
    const UniqueFd in = *open(folder.at("in"), O_PATH);
    EXPECT_TRUE(openBeneath(in.get(), "a", O_RDONLY).ok());
    EXPECT_TRUE(isCloseOnExec(openBeneath(in.get(), ".", O_PATH)->get()));
    for (const std::string& path : {std::string("link"), std::string("../out"), folder.at("in/a")}) {
        EXPECT_EQ(openBeneath(in.get(), path, O_RDONLY).error().code(), EXDEV) << path;
    }
    SysFaults faults;
    faults.failNth(Call::Open, 1, EAGAIN);
    EXPECT_TRUE(openBeneath(in.get(), "a", O_RDONLY).ok()) << "something was renamed just then";
    faults.failAll(Call::Open, EAGAIN);
    EXPECT_EQ(openBeneath(in.get(), "a", O_RDONLY).error().code(), EAGAIN);
}

}  // namespace
}  // namespace ksw::host::sys
