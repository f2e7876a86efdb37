// keyed_archive.h: objects to bytes and back. An archive is a CBOR map {"root": object or array of objects}; each
// object is marked, so that one met again is a reference to its first place and cycles have a form. The bytes are
// described in docs/archive.md, the classes' tables in class_info.h.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include <kestrelwood/values/data.h>

#include "platform/archive/class_info.h"
#include "platform/archive/decode_budget.h"
#include "platform/archive/object_graph.h"
#include "platform/base/result.h"

namespace ksw::archive {

/// Whether an object may be referred to from inside itself.
enum class Cycles : std::uint8_t { Refused, Allowed };

/// What a reader accepts.
struct ReadOptions {
    Coder coder = Coder::Ordinary;
    Cycles cycles = Cycles::Refused;
    /// Names of the classes that may occur, the root's included. Empty: those that the root's table and the tables
    /// reached from it name. In either case a field takes objects of its own class only. Borrowed for the call.
    std::span<const std::string_view> allowedClasses{};
};

/// One decoded object. `root` owns the whole graph; so does whatever `owned` answers.
template <class T>
struct Unarchived {
    std::shared_ptr<T> root;
    std::shared_ptr<const ObjectGraph> graph;

    /// An object of the graph as a pointer that keeps the graph alive.
    template <class Object>
    std::shared_ptr<Object> owned(const std::shared_ptr<Object>& object) const {
        return std::shared_ptr<Object>(graph, object.get());
    }
};

/// Decoded objects in their order, possibly none. Each of `roots` owns the whole graph.
template <class T>
struct UnarchivedArray {
    std::vector<std::shared_ptr<T>> roots;
    std::shared_ptr<const ObjectGraph> graph;

    template <class Object>
    std::shared_ptr<Object> owned(const std::shared_ptr<Object>& object) const {
        return std::shared_ptr<Object>(graph, object.get());
    }
};

namespace detail {

/// An archive of these objects, all of one class.
enum class RootForm : std::uint8_t { Object, Array };
using ObjectAt = const void* (*)(const void* objects, std::size_t index);
Result<Data> encode(const ClassInfo& info, RootForm form, const void* objects, std::size_t count, ObjectAt at,
                    Coder coder);

/// The graph, and the numbers of its root objects.
struct Decoded {
    std::shared_ptr<const ObjectGraph> graph;
    std::vector<std::uint32_t> roots;
};
Result<Decoded> decode(Bytes input, const ClassInfo& info, RootForm form, const ReadOptions& options,
                       DecodeBudget& budget);

}  // namespace detail

/// The archive of an object and of all that it refers to. Errors: a field that no reader would take (too long, not
/// UTF-8), nesting deeper than limits::kDepthMax, too many objects, no memory. The objects must not change
/// meanwhile.
template <class T>
Result<Data> archive(const T& root, Coder coder) {
    return detail::encode(
        classInfo<T>(), detail::RootForm::Object, &root, 1, [](const void* object, std::size_t) { return object; },
        coder);
}

/// The same of a list of objects, none of them null.
template <class T>
Result<Data> archiveArray(std::span<const std::shared_ptr<T>> roots, Coder coder) {
    return detail::encode(
        classInfo<T>(), detail::RootForm::Array, roots.data(), roots.size(),
        [](const void* objects, std::size_t index) -> const void* {
            return static_cast<const std::shared_ptr<T>*>(objects)[index].get();
        },
        coder);
}

/// Reads an archive whose root is a T. Takes from `budget`, which was made for `input` or for what it lies in.
/// Errors are `FormatError` with the place in their text ("root.url: URL expected"); nothing throws.
template <class T>
Result<Unarchived<T>> unarchive(Bytes input, const ReadOptions& options, DecodeBudget& budget) {
    auto decoded = detail::decode(input, classInfo<T>(), detail::RootForm::Object, options, budget);
    if (!decoded) {
        return decoded.error();
    }
    return Unarchived<T>{decoded->graph->template at<T>(decoded->graph, decoded->roots.front()),
                         std::move(decoded->graph)};
}

/// The same for an archive whose root is an array of T.
template <class T>
Result<UnarchivedArray<T>> unarchiveArray(Bytes input, const ReadOptions& options, DecodeBudget& budget) {
    auto decoded = detail::decode(input, classInfo<T>(), detail::RootForm::Array, options, budget);
    if (!decoded) {
        return decoded.error();
    }
    try {
        std::vector<std::shared_ptr<T>> roots;
        roots.reserve(decoded->roots.size());
        for (const std::uint32_t root : decoded->roots) {
            roots.push_back(decoded->graph->template at<T>(decoded->graph, root));
        }
        return UnarchivedArray<T>{std::move(roots), std::move(decoded->graph)};
    } catch (const std::bad_alloc&) {
        return outOfMemoryError();
    }
}

}  // namespace ksw::archive
