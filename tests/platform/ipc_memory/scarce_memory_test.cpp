// An allocation that fails somewhere in a request ends that request with an error, and nothing else.
// A program of its own: it replaces the allocator, which ThreadSanitizer wants for itself.
#include <gtest/gtest.h>

#include <tuple>

#include "platform/ipc/body.h"
#include "platform/ipc/frame.h"
#include "tests/platform/ipc/test_service.h"
#include "tests/support/failing_allocation.h"

namespace ksw::test {
namespace {

TEST(ARequestWithoutMemory, EndsWithAnErrorAndTheNextOneGoesThrough) {
    const HostRoot root;
    const TestServer server;
    const auto connection = testConnection();
    ASSERT_TRUE(connection->call(kEcho, std::string(100, 'x')).ok());
    const std::optional<std::string> text(std::string(300, 'x'));
    bool hasHappened = true;
    for (std::size_t number = 0; hasHappened; ++number) {
        bool isAnswered = false;
        std::optional<ConnectionError> error;
        {
            const FailingAllocation failing(number);
            const auto reply = connection->call(kEcho, text);
            hasHappened = failing.hasHappened();
            isAnswered = reply.ok();
            error = connectionErrorOf(reply);
        }
        EXPECT_EQ(isAnswered, !hasHappened) << number;
        EXPECT_EQ(error.has_value(), hasHappened) << number;
        ASSERT_TRUE(connection->call(kAdd, 1, 2).ok()) << number;
    }
}

TEST(ADecodingWithoutMemory, EndsWithAnErrorWhereverItIs) {
    const std::optional<Dictionary> dictionary = Dictionary{
        {"a key that is long enough to be allocated", Array{Value(std::string(100, 'y')), Value(Data(50))}},
        {"another key that is long enough", Value(Dictionary{{"inner", Value(1)}})}};
    const std::optional<Error> error = Error("a domain that is long enough to be allocated", 5, *dictionary);
    const ipc::ArgumentSource sources[] = {ipc::sourceOf(dictionary), ipc::sourceOf(error)};
    Data frame;
    ASSERT_TRUE(ipc::encodeReply(sources, frame).ok());
    bool hasHappened = true;
    std::size_t number = 0;
    (void)ipc::noMemoryError();
    for (; hasHappened; ++number) {
        std::tuple<std::optional<Dictionary>, std::optional<Error>> reply;
        const ipc::ArgumentPlace places[] = {ipc::placeOf(std::get<0>(reply)), ipc::placeOf(std::get<1>(reply))};
        const FailingAllocation failing(number);
        const Status status = ipc::decodeReplyBody(Bytes(frame).subspan(ipc::kHeaderSize), places, {});
        hasHappened = failing.hasHappened();
        ASSERT_EQ(status.ok(), !hasHappened) << number;
    }
    EXPECT_GT(number, 10U);
}

}  // namespace
}  // namespace ksw::test
