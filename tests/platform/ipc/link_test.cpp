#include "platform/ipc/link.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/socket.h>
#include <unistd.h>

namespace ksw::test {
namespace {

using ipc::Call;
using ipc::kHeaderSize;
using ipc::Link;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Sink final : public ipc::AsyncSink {
public:
    void over(Call* call) noexcept override { calls_.push_back(call); }
    void needsReader() noexcept override {}
    const std::vector<Call*>& calls() const { return calls_; }

private:
    std::vector<Call*> calls_;
};

/// A link, the other end of its socket, and two calls that were sent over it.
class ALink : public testing::Test {
protected:
    ALink() {
        for (Call* call : {&first_, &second_}) {
            call->request.resize(kHeaderSize);
            call->handler = [](const Result<Bytes>&) {};
            EXPECT_EQ(link_.send(*call), Link::Sent::Whole);
        }
    }

    UniqueFd connect() {
        int ends[2] = {-1, -1};
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends), 0);
        peer_ = UniqueFd(ends[1]);
        return UniqueFd(ends[0]);
    }
    /// The peer answers the calls, all at once.
    void answer(const std::vector<const Call*>& calls) {
        Data frames;
        for (const Call* call : calls) {
            Data frame(kHeaderSize);
            ipc::writeHeader({ipc::FrameKind::Reply, 1, call->serial}, std::span(frame).first<kHeaderSize>());
            frame.push_back(0x80);
            frames.insert(frames.end(), frame.begin(), frame.end());
        }
        ASSERT_EQ(::write(peer_.get(), frames.data(), frames.size()), static_cast<ssize_t>(frames.size()));
        link_.readForAsync();
    }

    Sink sink_;
    UniqueFd peer_;
    Link link_{connect(), 1024, sink_};
    Call first_;
    Call second_;
};

TEST_F(ALink, HandsCallsOverInTheOrderOfTheirAnswers) {
    link_.post(first_);
    link_.post(second_);
    answer({&second_, &first_});
    EXPECT_THAT(sink_.calls(), ElementsAre(&second_, &first_));
}

TEST_F(ALink, KeepsThatOrderWhenAnAnswerComesBeforeItsSenderIsBack) {
    link_.post(first_);
    answer({&second_, &first_});
    EXPECT_THAT(sink_.calls(), IsEmpty());
    link_.post(second_);
    EXPECT_THAT(sink_.calls(), ElementsAre(&second_, &first_));
}

TEST_F(ALink, WaitsForNoSenderWhoseAnswerHasNotCome) {
    link_.post(first_);
    answer({&first_});
    EXPECT_THAT(sink_.calls(), ElementsAre(&first_));
}

TEST_F(ALink, HandsOverAllThatIsInFlightWhenItEnds) {
    link_.post(first_);
    link_.end(Error(ConnectionError::Invalidated, "over"));
    EXPECT_THAT(sink_.calls(), ElementsAre(&first_));
    link_.post(second_);
    EXPECT_THAT(sink_.calls(), ElementsAre(&first_, &second_));
    EXPECT_EQ(first_.error->code(), static_cast<std::int64_t>(ConnectionError::Invalidated));
}

}  // namespace
}  // namespace ksw::test
