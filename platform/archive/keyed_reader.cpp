// Reading a keyed archive: fields are filled as they come, links are noted by the objects' numbers.
#include "platform/archive/keyed_reader.h"

#include <algorithm>

namespace ksw::archive::detail {

namespace {

constexpr const char* kObjectExpected = "object expected";
constexpr const char* kOtherClass = "object of a class that is not allowed here";
constexpr const char* kTwice = "key occurs twice";
/// What a marked object begins with: tag 28, tag 27, array of 2.
constexpr std::uint8_t kMarkedObject[] = {0xD8, 0x1C, 0xD8, 0x1B, 0x82};

}  // namespace

bool KeyedReader::readTop(const ClassInfo& info, RootForm form) {
    std::size_t keys = 0;
    bool hasRoot = false;
    if (!reader_.enterMap(keys)) {
        return false;
    }
    for (; keys > 0; --keys) {
        std::string_view key;
        if (!reader_.text(key)) {
            return false;
        }
        const bool isRoot = key == "root";
        if (isRoot && hasRoot) {
            return reader_.fail(FormatError::Malformed, kTwice);
        }
        hasRoot = hasRoot || isRoot;
        isInRoot_ = isRoot;
        if (!(isRoot ? readRoot(info, form) : unknown_.passOver(reader_, 0, key))) {
            return false;
        }
        isInRoot_ = false;
    }
    reader_.leave();
    if (!hasRoot) {
        return reader_.fail(FormatError::MissingRoot, "no object under \"root\"");
    }
    return reader_.end();
}

bool KeyedReader::readRoot(const ClassInfo& info, RootForm form) {
    if (form == RootForm::Array) {
        return openList(kNone, nullptr, info) && readOpen();
    }
    std::uint32_t number = 0;
    if (!readObject(info, Ownership::Strong, {kNone, nullptr, kNone}, number)) {
        return false;
    }
    roots_.push_back(number);
    return readOpen();
}

bool KeyedReader::readOpen() {
    while (!frames_.empty()) {
        if (!(frames_.back().isList ? readElement() : readPairs())) {
            return false;
        }
    }
    return true;
}

/// Reads pairs until the map ends or another map or list is opened inside it.
bool KeyedReader::readPairs() {
    Frame& frame = frames_.back();
    const std::size_t level = frames_.size();
    void* const fields = records_[frame.object].fields;
    while (frame.left > 0) {
        --frame.left;
        if (!takeKey(frame)) {
            return false;
        }
        const FieldInfo* const row = frame.row;
        if (row == nullptr) {
            continue;
        }
        if (row->links == nullptr) {
            if (!row->read(reader_, *row, fields)) {
                return false;
            }
        } else if (!readLinks(frame.object, *row)) {
            return false;
        } else if (frames_.size() != level) {
            return true;
        }
    }
    closeMap();
    return true;
}

void KeyedReader::closeMap() {
    const Frame& frame = frames_.back();
    records_[frame.object].isComplete = true;
    unknown_.close(frame.unknownBegin);
    frames_.pop_back();
    reader_.leave();
    reader_.leave();
}

/// Takes a key and says in `frame.row` which row it is. A key that the coder does not know is passed over with its
/// value, and the row is null.
bool KeyedReader::takeKey(Frame& frame) {
    const std::span<const FieldInfo> rows = frame.info->fields;
    if (frame.nextRow == rows.size() ||
        !reader_.takeIfNext(rows[frame.nextRow].key.data(), rows[frame.nextRow].key.size())) {
        if (!searchKey(frame)) {
            return false;
        }
        if (frame.row == nullptr) {
            return true;
        }
    }
    const std::size_t index = frame.nextRow++;
    const std::uint64_t bit = std::uint64_t{1} << index;
    frame.row = &rows[index];
    if ((frame.seen & bit) != 0) {
        return reader_.fail(FormatError::Malformed, kTwice);
    }
    frame.seen |= bit;
    if (frame.row->use == FieldUse::OrdinaryOnly && options_.coder != Coder::Ordinary) {
        frame.row = nullptr;
        return reader_.skip();
    }
    return true;
}

/// Takes a key that is not the expected one: sets the expected row to the one it names, else passes over its value.
bool KeyedReader::searchKey(Frame& frame) {
    const std::span<const FieldInfo> rows = frame.info->fields;
    std::string_view key;
    frame.row = nullptr;
    if (!reader_.text(key)) {
        return false;
    }
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const std::size_t index = (frame.nextRow + i) % rows.size();
        if (rows[index].key.text() == key) {
            frame.nextRow = index;
            frame.row = &rows[index];
            return true;
        }
    }
    return unknown_.passOver(reader_, frame.unknownBegin, key);
}

bool KeyedReader::readLinks(std::uint32_t object, const FieldInfo& row) {
    const ClassInfo& target = row.links->target();
    if (row.links->isList) {
        return openList(object, &row, target);
    }
    std::uint32_t number = 0;
    if (!readObject(target, row.links->ownership, {object, &row, kNone}, number)) {
        return false;
    }
    links_.push_back({object, number, &row});
    return true;
}

bool KeyedReader::openList(std::uint32_t object, const FieldInfo* row, const ClassInfo& info) {
    constexpr std::size_t kMemberSize = sizeof(std::shared_ptr<void>) + sizeof(std::uint32_t);
    std::size_t count = 0;
    if (!reader_.enterArray(count) || !reader_.chargeHeap(count * kMemberSize + sizeof(List))) {
        return false;
    }
    const auto list = static_cast<std::uint32_t>(lists_.size());
    std::vector<std::uint32_t>& members = lists_.emplace_back(List{object, row, {}}).members;
    members.reserve(std::min(count, limits::kReserveMax));
    frames_.push_back({true, object, count, &info, row, 0, 0, unknown_.begin(), list});
    return true;
}

/// Reads one element, or opens it, or closes the list.
bool KeyedReader::readElement() {
    Frame& frame = frames_.back();
    if (frame.left == 0) {
        frames_.pop_back();
        reader_.leave();
        return true;
    }
    --frame.left;
    const std::uint32_t list = frame.list;
    const auto position = static_cast<std::uint32_t>(lists_[list].members.size());
    std::uint32_t number = 0;
    if (!readObject(*frame.info, Ownership::Strong, {frame.object, frame.row, position}, number)) {
        return false;
    }
    lists_[list].members.push_back(number);
    return true;
}

/// Reads a reference to an object, or makes a new one and opens its map.
bool KeyedReader::readObject(const ClassInfo& info, Ownership ownership, const Place& place,
                             std::uint32_t& number) {
    number = static_cast<std::uint32_t>(objects_.size());
    if (reader_.takeIfNext(kMarkedObject, sizeof(kMarkedObject))) {
        std::uint32_t mark = 0;
        if (!budget_.enter()) {
            return reader_.fail(FormatError::LimitPassed, "nested too deeply");
        }
        return reader_.countMark(mark) && noteMark(mark) && openObject(info, place);
    }
    std::uint64_t tag = 0;
    if (reader_.peek() != ItemKind::Tag || !reader_.tag(tag)) {
        return reader_.ok() && reader_.remaining() == 0 ? reader_.fail(FormatError::Malformed, "cut short")
                                                        : reader_.fail(FormatError::WrongType, kObjectExpected);
    }
    if (tag == kReferenceTag) {
        return readReference(info, ownership, number);
    }
    std::uint32_t mark = 0;
    if (tag == kShareableTag && (!reader_.countMark(mark) || !noteMark(mark) || !reader_.tag(tag))) {
        return false;
    }
    std::size_t parts = 0;
    if (tag != kObjectTag) {
        return reader_.fail(FormatError::WrongType, kObjectExpected);
    }
    if (!reader_.enterArray(parts)) {
        return false;
    }
    return parts == 2 ? openObject(info, place)
                      : reader_.fail(FormatError::Malformed, "object is not a name and a map");
}

/// The mark stands for the object that comes next.
bool KeyedReader::noteMark(std::uint32_t mark) {
    if (!reader_.chargeHeap(sizeof(std::uint32_t))) {
        return false;
    }
    marked_.resize(mark, kNone);
    marked_.push_back(static_cast<std::uint32_t>(objects_.size()));
    return true;
}

bool KeyedReader::readReference(const ClassInfo& info, Ownership ownership, std::uint32_t& number) {
    std::uint64_t mark = 0;
    if (!reader_.unsignedInteger(mark)) {
        return false;
    }
    if (!budget_.takeSharedReference()) {
        return reader_.fail(FormatError::LimitPassed, "too many shared references");
    }
    if (mark >= reader_.marks()) {
        return reader_.fail(FormatError::Malformed, "reference to nothing");
    }
    number = mark < marked_.size() ? marked_[static_cast<std::size_t>(mark)] : kNone;
    if (number == kNone || records_[number].info != &info) {
        return reader_.fail(FormatError::WrongClass, "reference to something of another class");
    }
    if (!records_[number].isComplete && options_.cycles == Cycles::Refused) {
        return reader_.fail(FormatError::Malformed, "object refers to itself");
    }
    hasOwningReference_ = hasOwningReference_ || ownership == Ownership::Strong;
    return true;
}

bool KeyedReader::isAllowed(const ClassInfo& info) const {
    const auto& allowed = options_.allowedClasses;
    return allowed.empty() || std::find(allowed.begin(), allowed.end(), info.name) != allowed.end();
}

/// Reads the class's name and the head of the map, and makes the object that will be filled from it.
bool KeyedReader::openObject(const ClassInfo& info, const Place& place) {
    std::string_view name;
    std::size_t keys = 0;
    if (!reader_.text(name)) {
        return false;
    }
    if (name != info.name || !isAllowed(info)) {
        return reader_.fail(FormatError::WrongClass, kOtherClass);
    }
    if (!reader_.enterMap(keys)) {
        return false;
    }
    if (!budget_.takeObject()) {
        return reader_.fail(FormatError::LimitPassed, "too many objects");
    }
    if (!reader_.chargeHeap(info.heapSize + sizeof(Record) + sizeof(std::shared_ptr<void>))) {
        return false;
    }
    const auto number = static_cast<std::uint32_t>(objects_.size());
    const auto& object = objects_.emplace_back(info.make());
    records_.push_back({&info, info.fieldsOf(object.get()), place.row, place.holder, place.position,
                        static_cast<std::uint8_t>(budget_.depth()), false});
    frames_.push_back({false, number, keys, &info, nullptr, 0, 0, unknown_.begin(), kNone});
    return true;
}

}  // namespace ksw::archive::detail
