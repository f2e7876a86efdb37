// object_graph.h: the owner of all objects that came out of one archive.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <utility>
#include <vector>

#include "platform/archive/class_info.h"

namespace ksw::archive {

/// Keeps decoded objects alive together, because some refer to others weakly. Where objects own each other in a
/// circle it lets go of the links that close the circle when it is destroyed, so that nothing leaks: an object that
/// outlives its graph then lacks that field. Immutable; may be shared between threads.
class ObjectGraph {
public:
    /// A link that closes a circle of owners.
    struct ClosingLink {
        void* fields;
        const ObjectLinks* links;
    };

    ObjectGraph(std::vector<std::shared_ptr<void>> objects, std::vector<ClosingLink> closing)
        : objects_(std::move(objects)), closing_(std::move(closing)) {}
    ~ObjectGraph() {
        for (const ClosingLink& link : closing_) {
            link.links->clear(link.fields);
        }
    }
    ObjectGraph(const ObjectGraph&) = delete;
    ObjectGraph& operator=(const ObjectGraph&) = delete;

    std::size_t size() const { return objects_.size(); }
    /// The objects by number: outer ones before those first met inside them.
    std::span<const std::shared_ptr<void>> objects() const { return objects_; }

    /// The object of this number, which is a T, as a pointer that owns `graph`: the pointer to this graph.
    template <class T>
    std::shared_ptr<T> at(const std::shared_ptr<const ObjectGraph>& graph, std::uint32_t number) const {
        return std::shared_ptr<T>(graph, static_cast<T*>(objects_[number].get()));
    }

private:
    std::vector<std::shared_ptr<void>> objects_;
    std::vector<ClosingLink> closing_;
};

}  // namespace ksw::archive
