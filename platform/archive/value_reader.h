// value_reader.h: property-list values out of CBOR, without recursion.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <kestrelwood/values.h>

#include "platform/archive/cbor_reader.h"
#include "platform/archive/key_set.h"

namespace ksw::archive {

/// Reads one value with all that is in it. Open lists, dictionaries and errors stand on a stack of its own.
class ValueReader {
public:
    ValueReader(Reader& reader, ValueKinds kinds) : reader_(reader), kinds_(kinds) {}

    bool value(Value& into) { return item(into) && rest(); }
    bool dictionary(Dictionary& into) { return openDictionary(into) && rest(); }
    bool array(Array& into) { return openArray(into) && rest(); }
    /// An error, whether or not the kinds allow one further in.
    bool error(Value& into);

private:
    struct ErrorParts {
        std::optional<std::string> domain;
        std::optional<std::int64_t> code;
        std::optional<Dictionary> userInfo;
        Value* into;
    };
    /// One of the three is set.
    struct Frame {
        Array* array;
        Dictionary* dictionary;
        std::unique_ptr<ErrorParts> error;
        std::size_t left;
        std::size_t unknownBegin;
    };

    bool item(Value& into);
    bool scalar(ItemKind kind, Value& into);
    bool tagged(Value& into);
    bool allow(ValueKinds kind);
    bool openArray(Array& into);
    bool openDictionary(Dictionary& into);
    bool openError(Value& into, std::size_t keys);
    bool rest();
    bool step(Frame& frame);
    bool nextEntry(Dictionary& dictionary);
    bool nextErrorKey(Frame& frame);
    bool close();
    bool closeError(ErrorParts& parts);

    Reader& reader_;
    ValueKinds kinds_;
    std::vector<Frame> frames_;
    UnknownKeys unknown_;
};

}  // namespace ksw::archive
