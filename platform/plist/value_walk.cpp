#include "platform/plist/value_walk.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "platform/base/limits.h"

namespace ksw::plist {
namespace {

/// How much of a key a place shows, in bytes.
constexpr std::size_t kShownKeyMax = 64;

constexpr Complaint kNothing{FormatError::Unsupported, "nothing has no form in a property list"};
constexpr Complaint kError{FormatError::Unsupported, "an error has no form in a property list"};

/// A container that is being walked through: the element that comes next.
struct Open {
    const Array* array;
    Dictionary::const_iterator entry;
    Dictionary::const_iterator end;
    std::size_t index = 0;
};

class Walk {
public:
    explicit Walk(ValueVisitor& visitor) : visitor_(visitor) {}

    Status run(const Value& root) {
        Check check = visit(root);
        while (!check && !open_.empty()) {
            check = advance();
        }
        return check ? Status(errorHere(*check)) : Status();
    }

private:
    Check visit(const Value& value) {
        if (objects_++ == limits::kObjectsMax) {
            return kTooManyObjects;
        }
        if (const Array* array = value.as<Array>()) {
            return enter(visitor_.beginArray(*array), {array, {}, {}});
        }
        if (const Dictionary* dictionary = value.as<Dictionary>()) {
            return enter(visitor_.beginDictionary(*dictionary), {nullptr, dictionary->begin(), dictionary->end()});
        }
        if (value.isNull()) {
            return kNothing;
        }
        return value.as<Error>() != nullptr ? kError : visitor_.scalar(value);
    }

    Check enter(Check begun, Open container) {
        if (begun) {
            return begun;
        }
        if (open_.size() == limits::kDepthMax) {
            return kTooDeep;
        }
        open_.push_back(container);
        return {};
    }

    Check advance() {
        Open& top = open_.back();
        if (top.array != nullptr) {
            if (top.index == top.array->size()) {
                visitor_.endArray();
                open_.pop_back();
                return {};
            }
            return visit((*top.array)[top.index++]);
        }
        if (top.entry == top.end) {
            visitor_.endDictionary();
            open_.pop_back();
            return {};
        }
        const auto entry = top.entry++;
        ++top.index;
        if (objects_++ == limits::kObjectsMax) {
            return kTooManyObjects;
        }
        const Check check = visitor_.key(entry->first);
        return check ? check : visit(entry->second);
    }

    Error errorHere(Complaint complaint) const {
        std::string text = "property list, at ";
        for (const Open& container : open_) {
            appendStep(text, container);
        }
        text += open_.empty() ? "its root: " : ": ";
        text += complaint.text;
        return Error(complaint.code, text);
    }

    static void appendStep(std::string& text, const Open& container) {
        text += '/';
        if (container.index == 0) {
            return;
        }
        if (container.array != nullptr) {
            text += std::to_string(container.index - 1);
            return;
        }
        const std::string_view key = std::prev(container.entry)->first;
        std::transform(key.begin(), key.begin() + static_cast<std::ptrdiff_t>(std::min(key.size(), kShownKeyMax)),
                       std::back_inserter(text),
                       [](char character) { return character >= ' ' && character <= '~' ? character : '?'; });
    }

    ValueVisitor& visitor_;
    std::vector<Open> open_;
    std::size_t objects_ = 0;
};

}  // namespace

Status walk(const Value& root, ValueVisitor& visitor) {
    return Walk(visitor).run(root);
}

}  // namespace ksw::plist
