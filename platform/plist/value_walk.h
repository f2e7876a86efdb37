// value_walk.h: visits a value and all that it contains, without recursion.
#pragma once

#include <string>

#include <kestrelwood/values/value.h>

#include "platform/base/result.h"
#include "platform/plist/complaint.h"

namespace ksw::plist {

/// Told of each value in order, a container before its elements. A complaint ends the walk.
class ValueVisitor {
public:
    virtual Check scalar(const Value& value) = 0;
    virtual Check beginArray(const Array& array) = 0;
    virtual Check beginDictionary(const Dictionary& dictionary) = 0;
    /// The key of the value that comes next.
    virtual Check key(const std::string& key) = 0;
    virtual void endArray() = 0;
    virtual void endDictionary() = 0;

protected:
    ~ValueVisitor() = default;
};

/// Walks through `root`. Errors: the visitor's complaints; `Unsupported` for nothing and for an `Error`;
/// `LimitPassed` for what a reader would refuse for its depth or its number of values and keys. Their text names
/// the value by keys and indices.
Status walk(const Value& root, ValueVisitor& visitor);

}  // namespace ksw::plist
