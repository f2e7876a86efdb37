// node.h: an archivable class that has a field of every kind.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <kestrelwood/values.h>

#include "platform/archive/class_info.h"
#include "platform/archive/keyed_archive.h"

namespace ksw::archive {

/// A second class, so that one can stand where the other is expected.
struct Leaf {
    std::string colour;
};

struct Node {
    Node();
    ~Node();
    Node(const Node&) = delete;
    Node& operator=(const Node&) = delete;

    std::optional<std::string> name;
    std::int64_t count = 0;
    std::optional<std::uint32_t> narrow;
    std::optional<double> real;
    std::optional<bool> truth;
    std::optional<Data> data;
    std::optional<UUID> uuid;
    std::optional<URL> url;
    std::optional<std::vector<std::string>> words;
    std::optional<std::vector<Data>> blobs;
    std::optional<Dictionary> numbers;
    Value any;
    std::weak_ptr<Node> parent;
    std::shared_ptr<Node> partner;
    std::optional<std::vector<std::shared_ptr<Node>>> kids;
    std::shared_ptr<Leaf> leaf;

    /// What the hook saw of the object's relatives.
    bool isFinished = false;
    std::size_t kidsWhenFinished = 0;

    /// Nodes that live.
    static int living;
    /// What every hook runs at its end, until the test is over.
    static std::function<Status(Node&, const FinishContext&)> onFinish;
};

const ClassInfo& archiveClass(const Leaf*);
const ClassInfo& archiveClass(const Node*);

/// A node with this name.
std::shared_ptr<Node> node(std::string name);
/// A node with every field filled that is a value.
std::shared_ptr<Node> filledNode();

/// The archive of a node, which must succeed.
Data archived(const Node& node, Coder coder = Coder::Ordinary);
/// What comes of bytes with a budget of their own.
Result<Unarchived<Node>> readNode(Bytes bytes, ReadOptions options = {});
Result<UnarchivedArray<Node>> readNodes(Bytes bytes, ReadOptions options = {});
/// The text of the error that reading ends in; "read" when it ends in none.
std::string readingFailure(Bytes bytes, ReadOptions options = {});

/// Bytes from hexadecimal digits; blanks are passed over.
Data fromHex(std::string_view digits);
std::string toHex(Bytes bytes);

/// An archive whose root is a node with the pairs that `pairs` writes; `count` says how many those are.
Data nodeArchive(std::size_t count, const std::function<void(Writer&)>& pairs);
/// Begins a marked object of `count` keys.
void beginObject(Writer& writer, std::string_view className, std::size_t count);

}  // namespace ksw::archive
