#include "platform/ipc/dispatcher.h"

#include "platform/archive/cbor_reader.h"
#include "platform/base/text.h"
#include "platform/ipc/body.h"

namespace ksw::ipc {

const Dispatcher::Entry* Dispatcher::find(std::string_view selector) const {
    const auto entry = entries_.find(selector);
    return entry == entries_.end() ? nullptr : &entry->second;
}

Status Dispatcher::decodeArguments(archive::Reader& reader, std::span<const ArgumentPlace> places) {
    if (Status status = ipc::decodeArguments(reader, places, {}); !status) {
        return status;
    }
    reader.leave();  // of [selector, arguments]
    if (!reader.end()) {
        return reader.error("request");
    }
    return {};
}

void Dispatcher::refuseArguments(const RequestContext& context, PendingAnswer& answer, const Error& error) {
    answer.refuse(static_cast<std::int64_t>(Refusal::ArgumentsInvalid),
                  format("%s: %@", context.selector, error.localizedDescription()));
}

}  // namespace ksw::ipc
