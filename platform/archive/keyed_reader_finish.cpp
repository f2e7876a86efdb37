// The end of reading a keyed archive: owners are found, objects linked and finished, failures given their place.
#include <new>
#include <utility>

#include "platform/archive/keyed_reader.h"
#include "platform/archive/ownership.h"

namespace ksw::archive::detail {

Result<Decoded> KeyedReader::read(const ClassInfo& info, RootForm form) {
    if (!readTop(info, form)) {
        return reader_.error(place());
    }
    return finish();
}

Result<Decoded> KeyedReader::finish() {
    std::vector<ObjectGraph::ClosingLink> closing;
    if (hasOwningReference_ && !findClosing(closing)) {
        return Error(FormatError::LimitPassed, "root: objects own each other too deeply");
    }
    // The graph comes first: from here on it is the one that takes circles apart, whatever fails.
    auto graph = std::make_shared<const ObjectGraph>(std::move(objects_), std::move(closing));
    link(graph->objects());
    if (const Status finished = finishObjects(*graph); !finished) {
        return finished.error();
    }
    if (!lists_.empty() && lists_.front().row == nullptr) {
        roots_ = std::move(lists_.front().members);
    }
    return Decoded{std::move(graph), std::move(roots_)};
}

/// False when a chain of owners is too long.
bool KeyedReader::findClosing(std::vector<ObjectGraph::ClosingLink>& closing) const {
    struct Origin {
        std::uint32_t object;
        const FieldInfo* row;
    };
    std::vector<Origin> origins;
    std::vector<OwningLink> owning;
    const auto add = [&](std::uint32_t from, const FieldInfo* row, std::span<const std::uint32_t> members) {
        const auto label = static_cast<std::uint32_t>(origins.size());
        origins.push_back({from, row});
        for (const std::uint32_t member : members) {
            owning.push_back({from, member, label});
        }
    };
    for (const SingleLink& one : links_) {
        if (one.row->links->ownership == Ownership::Strong) {
            add(one.from, one.row, {&one.to, 1});
        }
    }
    for (const List& list : lists_) {
        if (list.row != nullptr) {
            add(list.from, list.row, list.members);
        }
    }
    const auto labels = closingLinks(records_.size(), owning);
    if (!labels) {
        return false;
    }
    for (const std::uint32_t label : *labels) {
        closing.push_back({records_[origins[label].object].fields, origins[label].row->links});
    }
    return true;
}

void KeyedReader::link(std::span<const std::shared_ptr<void>> objects) const {
    for (const SingleLink& one : links_) {
        one.row->links->link(records_[one.from].fields, objects.subspan(one.to, 1));
    }
    std::vector<std::shared_ptr<void>> members;
    for (const List& list : lists_) {
        if (list.row == nullptr) {
            continue;
        }
        members.clear();
        for (const std::uint32_t member : list.members) {
            members.push_back(objects[member]);
        }
        list.row->links->link(records_[list.from].fields, members);
    }
}

Status KeyedReader::finishObjects(const ObjectGraph& graph) const {
    const FinishContext context{options_.coder, budget_};
    for (std::size_t i = 0; i < records_.size(); ++i) {
        const Record& record = records_[i];
        if (record.info->finish == nullptr) {
            continue;
        }
        const DepthScope scope(budget_, record.depth);
        if (const Status finished = record.info->finish(graph.objects()[i].get(), context); !finished) {
            const Error& error = finished.error();
            return Error(error.domain(), error.code(),
                         placeOf(static_cast<std::uint32_t>(i)) + ": " + std::string(error.localizedDescription()));
        }
    }
    return {};
}

namespace {

std::string element(std::uint32_t position) {
    return "[" + std::to_string(position) + "]";
}

}  // namespace

/// Where the object stands in full: "root[3].container".
std::string KeyedReader::placeOf(std::uint32_t number) const {
    std::string text;
    while (number != kNone) {
        const Record& record = records_[number];
        std::string step = record.place == nullptr ? "root" : "." + std::string(record.place->key.text());
        if (record.position != kNone) {
            step += element(record.position);
        }
        text.insert(0, step);
        number = record.holder;
    }
    return text;
}

/// Where reading stopped.
std::string KeyedReader::place() const {
    if (frames_.empty()) {
        return isInRoot_ ? "root" : "archive";
    }
    const Frame& frame = frames_.back();
    std::string text = frame.object == kNone ? "root" : placeOf(frame.object);
    if (frame.row != nullptr) {
        text += '.';
        text += frame.row->key.text();
    }
    return frame.isList ? text + element(static_cast<std::uint32_t>(lists_[frame.list].members.size())) : text;
}

Result<Decoded> decode(Bytes input, const ClassInfo& info, RootForm form, const ReadOptions& options,
                       DecodeBudget& budget) {
    const DepthScope scope(budget);
    try {
        outOfMemoryError();
        return KeyedReader(input, options, budget).read(info, form);
    } catch (const std::bad_alloc&) {
        return outOfMemoryError();
    }
}

}  // namespace ksw::archive::detail
