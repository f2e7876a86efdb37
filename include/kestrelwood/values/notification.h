// notification.h: a distributed notification as its observers get it.
#pragma once

#include <optional>
#include <string>

#include <kestrelwood/values/value.h>

namespace ksw {

/// What has happened, by name, and what its poster says of it.
struct Notification {
    std::string name;
    /// Absent when the poster said nothing, and when notifications may have been missed meanwhile.
    std::optional<Dictionary> userInfo;

    friend bool operator==(const Notification&, const Notification&) = default;
};

}  // namespace ksw
