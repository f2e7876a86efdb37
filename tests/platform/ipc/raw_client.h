// raw_client.h: a client of a system service that sends what it likes and reads when it likes.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string_view>

#include "platform/ipc/body.h"
#include "platform/ipc/dialer.h"
#include "platform/ipc/frame.h"
#include "platform/ipc/stream.h"
#include "tests/platform/ipc/test_service.h"

namespace ksw::test {

/// A client that sends what it likes.
class RawClient {
public:
    explicit RawClient(std::string_view service = kTestService) {
        const auto place = ipc::servicePlace(service, ipc::Domain::System, std::nullopt);
        Result<UniqueFd> socket = ipc::dial(*place);
        EXPECT_TRUE(socket.ok());
        stream_ = std::make_unique<ipc::Stream>(std::move(*socket));
    }
    void send(Bytes bytes) { (void)stream_->sendAll(bytes); }
    void request(std::uint32_t serial, std::string_view selector, std::span<const ipc::ArgumentSource> arguments) {
        Data frame;
        ASSERT_TRUE(ipc::encodeRequest(selector, arguments, frame).ok());
        ipc::writeHeader(
            {ipc::FrameKind::Request, static_cast<std::uint32_t>(frame.size() - ipc::kHeaderSize), serial},
            std::span(frame).first<ipc::kHeaderSize>());
        send(frame);
    }
    /// The header of the next answer; absent when the server has closed.
    std::optional<ipc::FrameHeader> next() {
        while (true) {
            const auto found = ipc::findFrame(stream_->buffer().bytes(), limits::kFrameBodyMax);
            if (found && found->frame) {
                const ipc::FrameHeader header = found->frame->header;
                stream_->buffer().consume(found->frame->size());
                return header;
            }
            const auto received = stream_->receive(found->bytesMissing);
            if (!received || *received == ipc::Received::End) {
                return std::nullopt;
            }
        }
    }
    int fd() const { return stream_->fd(); }

private:
    std::unique_ptr<ipc::Stream> stream_;
};

}  // namespace ksw::test
