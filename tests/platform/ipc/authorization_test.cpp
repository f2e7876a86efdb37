// Whose authorization a server takes.

#include "platform/ipc/authorization.h"

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <unistd.h>

#include "platform/base/unique_fd.h"

namespace ksw::ipc {
namespace {

Data own() {
    const std::optional<Authorization> made = Authorization::ofCallingProcess();
    EXPECT_TRUE(made.has_value());
    return made ? made->serialized() : Data{};
}

AuditToken self() {
    return *host::auditTokenForPid(::getpid());
}

TEST(AnAuthorization, IsTakenFromTheProcessThatMadeIt) {
    int ends[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    const UniqueFd near(ends[0]);
    const UniqueFd far(ends[1]);
    const auto peer = host::PeerIdentity::ofSocket(near.get());
    ASSERT_TRUE(peer.ok());
    EXPECT_TRUE(checkAuthorization(own(), *peer).ok());
}

TEST(AnAuthorization, IsTakenFromNoOtherProcess) {
    for (const std::size_t word : {0U, 4U, 6U, 7U}) {
        AuditToken other = self();
        other.words.at(word) += 1;
        const Status status = checkAuthorization(own(), other);
        ASSERT_FALSE(status.ok()) << word;
        EXPECT_EQ(status.error().localizedDescription(), "authorization: of another process, or as another user");
    }
}

TEST(AnAuthorization, IsTakenFromNoProcessThatCannotBeLookedAt) {
    AuditToken gone = self();
    gone.words[6] = 0;
    gone.words[7] = 0;
    EXPECT_FALSE(checkAuthorization(serializedAuthorization(gone), gone).ok());
}

TEST(AnAuthorization, IsNotMadeByOddBytes) {
    EXPECT_FALSE(checkAuthorization(std::nullopt, self()).ok());
    EXPECT_FALSE(checkAuthorization(Data{}, self()).ok());
    EXPECT_FALSE(checkAuthorization(Data{0xF6}, self()).ok());
    const Data whole = own();
    for (std::size_t size = 0; size < whole.size(); ++size) {
        EXPECT_FALSE(
            checkAuthorization(Data(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)), self())
                .ok());
    }
    Data longer = whole;
    longer.push_back(0);
    EXPECT_FALSE(checkAuthorization(longer, self()).ok());
    Data another = whole;
    another.at(3) ^= 1U;
    EXPECT_EQ(checkAuthorization(another, self()).error().localizedDescription(), "authorization: another right");
}

TEST(AnAuthorization, IsTheSameAfterItHasTravelled) {
    const std::optional<Authorization> made = Authorization::ofCallingProcess();
    EXPECT_EQ(made, Authorization(made->serialized()));
}

}  // namespace
}  // namespace ksw::ipc
