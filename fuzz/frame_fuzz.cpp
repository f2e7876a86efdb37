// Reads any bytes as frames and their bodies as replies and refusals: what is found must be what was there.
#include <algorithm>
#include <cstdlib>
#include <tuple>

#include "platform/base/limits.h"
#include "platform/ipc/body.h"
#include "platform/ipc/frame.h"

namespace {

using namespace ksw;

/// A header that was read must be written back to the same bytes.
void checkHeader(const ipc::Frame& frame, Bytes bytes) {
    std::array<std::uint8_t, ipc::kHeaderSize> written{};
    ipc::writeHeader(frame.header, written);
    if (!std::equal(written.begin(), written.end(), bytes.begin())) {
        std::abort();
    }
}

/// A reply of every type that a row may have.
void readReply(Bytes body) {
    std::tuple<bool, std::int64_t, std::uint64_t, Uid, double, std::optional<std::string>, std::optional<Data>,
               std::optional<URL>, std::optional<UUID>, std::optional<AuditToken>, std::optional<Dictionary>,
               std::optional<Error>>
        reply;
    const Status status = std::apply(
        [&](auto&... slots) {
            const ipc::ArgumentPlace places[] = {ipc::placeOf(slots)...};
            return ipc::decodeReplyBody(body, places, {});
        },
        reply);
    if (!status && status.error().domain() != kConnectionErrorDomain) {
        std::abort();
    }
}

void readRefusal(Bytes body) {
    ipc::Call call;
    call.kind = ipc::FrameKind::Refusal;
    call.reply.assign(body.begin(), body.end());
    const Result<Bytes> read = ipc::bodyOf(call);
    if (read || read.error().domain() != kConnectionErrorDomain) {
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Bytes rest(data, size);
    while (true) {
        const Result<ipc::FrameSearch> found = ipc::findFrame(rest, limits::kFrameBodyMax);
        if (!found || !found->frame) {
            return 0;
        }
        checkHeader(*found->frame, rest);
        if (found->frame->header.kind == ipc::FrameKind::Refusal) {
            readRefusal(found->frame->body);
        } else {
            readReply(found->frame->body);
        }
        rest = rest.subspan(found->frame->size());
    }
}
