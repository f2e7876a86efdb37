// authorization.h: what a program shows the management daemon for the consent of an administrator.
#pragma once

#include <optional>
#include <utility>

#include <kestrelwood/export.h>
#include <kestrelwood/values/data.h>
#include <kestrelwood/values/error.h>

namespace ksw {

/// Says in the name of one process that it wants to manage the daemon's database. It proves nothing by itself: the
/// daemon takes it from the process that it was made by only, and then asks the host whether that process may. A
/// plain value.
class KSW_EXPORT Authorization {
public:
    /// In the name of the calling process, as the user that it is now. Absent when the host does not tell the
    /// process about itself; `error`, when given, receives the reason then, and is left as it was otherwise.
    static std::optional<Authorization> ofCallingProcess(std::optional<Error>* error = nullptr);

    /// One that has been serialised. Nothing is checked here.
    Authorization(Data serialized) : serialized_(std::move(serialized)) {}

    /// The bytes that travel (docs/wire.md).
    const Data& serialized() const { return serialized_; }

    /// Whether both have the same bytes.
    friend bool operator==(const Authorization&, const Authorization&) = default;

private:
    Data serialized_;
};

}  // namespace ksw
