// manager_state.h: what a KSWManager holds.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include <kestrelwood/KSWManager.h>
#include <kestrelwood/service_connection.h>

#include "client/manager/list_registry.h"
#include "client/manager/request_frame.h"
#include "platform/ipc/notification_center.h"

struct KSWManager::State {
    // Constant after construction.
    bool isOn = false;
    std::int64_t mode = 0;
    std::unique_ptr<ksw::ServiceConnection> connection;
    ksw::client::Requester requester;

    ksw::client::ListRegistry lists;
    /// How many notifications have been handled; raised before their lists are looked for.
    std::atomic<std::uint64_t> changesHandled = 0;
    /// Last, so that nobody is told of changes while the rest goes.
    ksw::ipc::NotificationCenter::Observation changes;
};
