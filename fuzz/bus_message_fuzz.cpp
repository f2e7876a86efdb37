// Reads any bytes as a message of the session's bus: never beyond them, and never more than they say.
#include <cstdlib>

#include "platform/base/limits.h"
#include "platform/host/bus_message.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    using namespace ksw;
    const Bytes message(bytes, size);
    const Result<std::size_t> length = host::busMessageSize(message);
    if (length && (*length < host::kBusHeadSize || *length > limits::kBusMessageMax)) {
        std::abort();
    }
    const Result<host::BusMessage> read = host::readBusMessage(message);
    if (read && (!length || *length != size || read->errorName.size() > size)) {
        std::abort();
    }
    return 0;
}
