// report.h: what an operation of the daemon's household answers, and how each method's reply is made of it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <kestrelwood/KSWErrors.h>

#include "client/protocol/user_data_change.h"
#include "client/values/user_settings_archive.h"
#include "model/item/item_archive.h"
#include "platform/ipc/responder.h"
#include "platform/ipc/wire_objects.h"
#include "servers/kestrelwoodd/registry.h"

namespace ksw::daemon {

/// All that a reply can be made of; a method's reply has a part of it.
struct Report {
    std::int64_t code = 0;  ///< A code of KSWErrors.h.
    bool flag = false;
    SettingsPointer settings{};
    std::optional<Dictionary> dictionary{};
    std::optional<std::string> text{};
    std::optional<Data> data{};
    ItemPointer item{};
    /// What has changed, for those who are to be told.
    std::vector<protocol::UserDataChange> changes{};
    /// Taken apart with the report, when everybody has been told.
    std::vector<ItemPointer> replaced{};
};

inline Report reportOf(std::int64_t code) {
    Report report;
    report.code = code;
    return report;
}

Report reportOf(Outcome outcome);

inline std::optional<Error> errorOf(const Report& report) {
    return report.code == KSWErrorNone ? std::nullopt : std::optional(KSWErrorWithCode(report.code));
}

/// That it is done.
inline void reply(ipc::Responder<>& responder, const Report& /*report*/) {
    responder.answer();
}

/// A code alone.
inline void reply(ipc::Responder<std::int64_t>& responder, const Report& report) {
    responder.answer(report.code);
}

/// A user's settings.
inline void reply(ipc::Responder<std::int64_t, SettingsPointer>& responder, const Report& report) {
    responder.answer(report.code, report.settings);
}

/// A switch, or whether there is one.
inline void reply(ipc::Responder<std::int64_t, bool>& responder, const Report& report) {
    responder.answer(report.code, report.flag);
}

/// A switch, or whether it was set.
inline void reply(ipc::Responder<bool>& responder, const Report& report) {
    responder.answer(report.flag);
}

/// Nothing, or what went wrong.
inline void reply(ipc::Responder<std::optional<Error>>& responder, const Report& report) {
    responder.answer(errorOf(report));
}

/// A payload.
inline void reply(ipc::Responder<std::optional<Dictionary>>& responder, const Report& report) {
    responder.answer(report.dictionary);
}

/// A text, or what went wrong.
inline void reply(ipc::Responder<std::optional<std::string>, std::optional<Error>>& responder,
                  const Report& report) {
    responder.answer(report.text, errorOf(report));
}

/// Archived items, or what went wrong.
inline void reply(ipc::Responder<std::optional<Data>, std::optional<Error>>& responder, const Report& report) {
    responder.answer(report.data, errorOf(report));
}

/// An item.
inline void reply(ipc::Responder<std::int64_t, ItemPointer>& responder, const Report& report) {
    responder.answer(report.code, report.item);
}

}  // namespace ksw::daemon
