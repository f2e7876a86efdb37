// builder.h: puts decoded values together without recursion and within a budget.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include <kestrelwood/values/value.h>

#include "platform/plist/budget.h"
#include "platform/plist/complaint.h"

namespace ksw::plist {

/// A stack of open containers and, at last, the root value. Every value, key and container made is charged
/// before it is allocated. The caller asks `wantsKey`, `isFinished` and `depth` before it acts on them. For one
/// thread.
class Builder {
public:
    explicit Builder(Budget& budget) : budget_(budget) {}

    enum class Kind { Array, Dictionary };

    /// Whether the root value is there, with every container closed.
    bool isFinished() const { return finished_; }
    /// How many containers are open.
    std::size_t depth() const { return open_.size(); }
    /// Whether the innermost open container is a dictionary without a pending key.
    bool wantsKey() const { return !open_.empty() && isDictionary() && !open_.back().hasKey; }
    /// Whether a key waits for its value.
    bool hasKey() const { return !open_.empty() && open_.back().hasKey; }
    /// Whether the innermost open container is a dictionary; there must be one.
    bool isDictionary() const { return open_.back().container.as<Dictionary>() != nullptr; }

    /// Opens a container. `elements` is how many an array is said to get; 0 when nobody knows.
    [[nodiscard]] Check open(Kind kind, std::size_t elements = 0);
    /// Closes the innermost container and puts it where it belongs.
    [[nodiscard]] Check close();
    /// The key of the next value; only when `wantsKey`.
    [[nodiscard]] Check key(std::string_view text);
    /// A value that is no container, and whose heap, if it has any, the caller has paid for.
    [[nodiscard]] Check scalar(Value value);
    /// A string, copied.
    [[nodiscard]] Check text(std::string_view text);

    /// The root value; only when `isFinished`.
    Value takeRoot() { return std::move(root_); }

private:
    struct Open {
        Value container;
        std::string key;
        std::size_t elements = 0;
        bool hasKey = false;
    };

    Check place(Value value);
    Check append(Array& array, std::size_t elements, Value value);
    Check insert(Open& parent, Dictionary& dictionary, Value value);

    Budget& budget_;
    std::vector<Open> open_;
    Value root_;
    bool finished_ = false;
};

}  // namespace ksw::plist
