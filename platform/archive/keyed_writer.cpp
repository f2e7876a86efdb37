// Writing a keyed archive: objects from the root down, each in full where it is met first.
#include <algorithm>
#include <bit>

#include "platform/archive/identity_map.h"
#include "platform/archive/keyed_archive.h"

namespace ksw::archive::detail {

namespace {

/// What an object of a list takes in bytes, about, and how much is made room for before the first is written.
constexpr std::size_t kUsualSize = 1'088;
constexpr std::size_t kExpectedMax = 16 * limits::kMiB;

class KeyedWriter {
public:
    explicit KeyedWriter(Coder coder) : coder_(coder) {}

    Result<Data> write(const ClassInfo& info, RootForm form, const void* objects, std::size_t count, ObjectAt at);

private:
    void writeObject(const ClassInfo& info, const void* object, std::shared_ptr<const void> owner);
    void writeInFull(const ClassInfo& info, const void* object);
    void writeLinks(const FieldInfo& row, const void* fields);
    void writeList(const ObjectLinks& links, const void* fields);
    std::uint64_t presentRows(const ClassInfo& info, const void* fields) const;

    Writer writer_;
    Coder coder_;
    IdentityMap known_;
    std::size_t references_ = 0;
    /// Objects that were reached weakly live until the end, so that no address is met twice for two of them.
    std::vector<std::shared_ptr<const void>> held_;
};

Result<Data> KeyedWriter::write(const ClassInfo& info, RootForm form, const void* objects, std::size_t count,
                                ObjectAt at) {
    writer_.map(1);
    writer_.text("root");
    writer_.enter();
    if (form == RootForm::Array) {
        writer_.array(count);
        writer_.expect(std::min(count * kUsualSize, kExpectedMax));
        writer_.enter();
    }
    for (std::size_t i = 0; i < count && writer_.ok(); ++i) {
        writeObject(info, at(objects, i), nullptr);
    }
    return writer_.take();
}

void KeyedWriter::writeObject(const ClassInfo& info, const void* object, std::shared_ptr<const void> owner) {
    const auto [number, isNew] = known_.number(object);
    if (known_.size() > limits::kObjectsMax || ++references_ > limits::kSharedReferencesMax) {
        writer_.fail(FormatError::LimitPassed, "too many objects");
        return;
    }
    if (!isNew) {
        writer_.tag(kReferenceTag);
        writer_.unsignedInteger(number);
        return;
    }
    if (owner != nullptr) {
        held_.push_back(std::move(owner));
    }
    if (!writer_.enter()) {
        return;
    }
    if (writer_.enter()) {
        writeInFull(info, object);
        writer_.leave();
    }
    writer_.leave();
}

void KeyedWriter::writeInFull(const ClassInfo& info, const void* object) {
    // Tables give members to be written to as well; nothing is written to here.
    const void* const fields = info.fieldsOf(const_cast<void*>(object));
    std::uint64_t present = presentRows(info, fields);
    writer_.tag(kShareableTag);
    writer_.tag(kObjectTag);
    writer_.array(2);
    writer_.text(info.name);
    writer_.map(static_cast<std::size_t>(std::popcount(present)));
    for (; present != 0 && writer_.ok(); present &= present - 1) {
        const FieldInfo& row = info.fields[static_cast<std::size_t>(std::countr_zero(present))];
        writer_.raw(row.key.data(), row.key.size());
        if (row.links != nullptr) {
            writeLinks(row, fields);
        } else {
            row.write(writer_, row, fields);
        }
    }
}

/// One bit for each row that is to be written.
std::uint64_t KeyedWriter::presentRows(const ClassInfo& info, const void* fields) const {
    std::uint64_t present = 0;
    for (std::size_t i = 0; i < info.fields.size(); ++i) {
        const FieldInfo& row = info.fields[i];
        if ((row.use == FieldUse::EveryCoder || coder_ == Coder::Ordinary) && row.isPresent(fields)) {
            present |= std::uint64_t{1} << i;
        }
    }
    return present;
}

void KeyedWriter::writeLinks(const FieldInfo& row, const void* fields) {
    const ObjectLinks& links = *row.links;
    if (links.isList) {
        writeList(links, fields);
        return;
    }
    std::shared_ptr<const void> owner;
    const void* const target = links.at(fields, 0, owner);
    if (target == nullptr) {
        writer_.fail(FormatError::Unsupported, "object went away while it was written");
        return;
    }
    writeObject(links.target(), target, std::move(owner));
}

void KeyedWriter::writeList(const ObjectLinks& links, const void* fields) {
    if (!writer_.enter()) {
        return;
    }
    const std::size_t count = links.count(fields);
    writer_.array(count);
    std::shared_ptr<const void> owner;
    for (std::size_t i = 0; i < count && writer_.ok(); ++i) {
        writeObject(links.target(), links.at(fields, i, owner), nullptr);
    }
    writer_.leave();
}

}  // namespace

Result<Data> encode(const ClassInfo& info, RootForm form, const void* objects, std::size_t count, ObjectAt at,
                    Coder coder) {
    try {
        outOfMemoryError();
        return KeyedWriter(coder).write(info, form, objects, count, at);
    } catch (const std::bad_alloc&) {
        return outOfMemoryError();
    }
}

}  // namespace ksw::archive::detail
