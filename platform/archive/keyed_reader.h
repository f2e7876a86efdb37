// keyed_reader.h: the reading of one keyed archive. Used by keyed_archive.h alone.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/archive/cbor_reader.h"
#include "platform/archive/key_set.h"
#include "platform/archive/keyed_archive.h"

namespace ksw::archive::detail {

/// Reads all objects, only filling their fields; then links them; then lets them finish. Open objects and lists
/// stand on a stack of its own.
class KeyedReader {
public:
    KeyedReader(Bytes input, const ReadOptions& options, DecodeBudget& budget)
        : reader_(input, budget), options_(options), budget_(budget) {}

    /// Once.
    Result<Decoded> read(const ClassInfo& info, RootForm form);

private:
    static constexpr std::uint32_t kNone = UINT32_MAX;

    /// An object by its number, and where it stands in full.
    struct Record {
        const ClassInfo* info;
        void* fields;
        const FieldInfo* place;  ///< The row of the holder that it stands under; null for a root.
        std::uint32_t holder;    ///< kNone for a root.
        std::uint32_t position;  ///< In the holder's list; kNone when it stands in none.
        std::uint8_t depth;      ///< Of the budget, inside the object.
        bool isComplete;
    };
    struct SingleLink {
        std::uint32_t from;
        std::uint32_t to;
        const FieldInfo* row;
    };
    struct List {
        std::uint32_t from;
        const FieldInfo* row;  ///< Null for the array of roots.
        std::vector<std::uint32_t> members;
    };
    /// A map of an object, or a list of objects, that is being read.
    struct Frame {
        bool isList;
        std::uint32_t object;   ///< Whose map or list it is; kNone for the array of roots.
        std::size_t left;       ///< Pairs or elements still to come.
        const ClassInfo* info;  ///< Class of the object, or of the list's elements.
        const FieldInfo* row;   ///< The row read last, or the list's; null at first and for an unknown key.
        std::size_t nextRow;    ///< Of a map: the row expected next.
        std::uint64_t seen;     ///< Of a map: one bit for each row met.
        std::size_t unknownBegin;
        std::uint32_t list;
    };

    bool readTop(const ClassInfo& info, RootForm form);
    bool readRoot(const ClassInfo& info, RootForm form);
    bool readOpen();
    bool readPairs();
    bool readElement();
    void closeMap();
    bool takeKey(Frame& frame);
    bool searchKey(Frame& frame);
    bool readLinks(std::uint32_t object, const FieldInfo& row);
    bool openList(std::uint32_t object, const FieldInfo* row, const ClassInfo& info);

    /// Where an object stands: the holder's number, its row, the position in its list.
    struct Place {
        std::uint32_t holder;
        const FieldInfo* row;
        std::uint32_t position;
    };
    bool readObject(const ClassInfo& info, Ownership ownership, const Place& place, std::uint32_t& number);
    bool noteMark(std::uint32_t mark);
    bool readReference(const ClassInfo& info, Ownership ownership, std::uint32_t& number);
    bool openObject(const ClassInfo& info, const Place& place);
    bool isAllowed(const ClassInfo& info) const;

    Result<Decoded> finish();
    bool findClosing(std::vector<ObjectGraph::ClosingLink>& closing) const;
    void link(std::span<const std::shared_ptr<void>> objects) const;
    Status finishObjects(const ObjectGraph& graph) const;

    std::string placeOf(std::uint32_t number) const;
    std::string place() const;

    Reader reader_;
    ReadOptions options_;
    DecodeBudget& budget_;
    std::vector<Frame> frames_;
    std::vector<std::shared_ptr<void>> objects_;
    std::vector<Record> records_;
    std::vector<std::uint32_t> marked_;  ///< Object by mark, kNone for a mark on something else.
    std::vector<SingleLink> links_;
    std::vector<List> lists_;
    std::vector<std::uint32_t> roots_;
    UnknownKeys unknown_;
    bool isInRoot_ = false;
    bool hasOwningReference_ = false;
};

}  // namespace ksw::archive::detail
