#include "tests/platform/archive/node.h"

#include <gtest/gtest.h>

#include "platform/archive/class_table.h"
#include "platform/base/hex.h"

namespace ksw::archive {

template <>
struct MembersOf<std::optional<std::vector<std::shared_ptr<Node>>>> {
    using Object = Node;
    using List = std::optional<std::vector<std::shared_ptr<Node>>>;
    static bool isPresent(const List& list) { return list.has_value(); }
    static std::span<const std::shared_ptr<Node>> span(const List& list) { return *list; }
    static List from(std::vector<std::shared_ptr<Node>> nodes) { return nodes; }
};

namespace {

constexpr auto kLeafFields = fieldTable(field<&Leaf::colour>("colour"));
constexpr ClassInfo kLeaf = describeClass<Leaf>("Leaf", kLeafFields);

Status finishNode(Node& node, const FinishContext& context) {
    node.isFinished = true;
    node.kidsWhenFinished = node.kids ? node.kids->size() : 0;
    return Node::onFinish ? Node::onFinish(node, context) : Status();
}

constexpr auto kNodeFields =
    fieldTable(field<&Node::name>("name"), field<&Node::count>("count"), field<&Node::narrow>("narrow"),
               field<&Node::real>("real"), field<&Node::truth>("truth"), field<&Node::data>("data"),
               field<&Node::uuid>("uuid"), field<&Node::url>("url"), field<&Node::words>("words"),
               field<&Node::blobs>("blobs"), field<&Node::numbers>("numbers", {.kinds = ValueKinds::Number}),
               field<&Node::any>("any", {.kinds = ValueKinds::Any, .sizeMax = limits::kStringMax}),
               object<&Node::parent>("parent"), object<&Node::partner>("partner"),
               objects<&Node::kids>("kids", {.use = FieldUse::OrdinaryOnly}), object<&Node::leaf>("leaf"));
constexpr ClassInfo kNode = describeClass<Node, &detail::itself<Node>, &finishNode>("Node", kNodeFields);

}  // namespace

int Node::living = 0;
std::function<Status(Node&, const FinishContext&)> Node::onFinish;

Node::Node() {
    ++living;
}

Node::~Node() {
    --living;
}

const ClassInfo& archiveClass(const Leaf*) {
    return kLeaf;
}

const ClassInfo& archiveClass(const Node*) {
    return kNode;
}

std::shared_ptr<Node> node(std::string name) {
    auto made = std::make_shared<Node>();
    made->name = std::move(name);
    return made;
}

std::shared_ptr<Node> filledNode() {
    auto filled = node("a node whose name is long");
    filled->count = -7;
    filled->narrow = 4'000'000'000;
    filled->real = 1.5;
    filled->truth = true;
    filled->data = Data{1, 2, 3};
    filled->uuid = UUID::fromString("00112233-4455-6677-8899-AABBCCDDEEFF");
    filled->url = URL::fromString("file:///Applications/A.app/");
    filled->words = {"one", "", "drei \xE2\x82\xAC and some more"};
    filled->blobs = std::vector<Data>{Data{}, Data{9}};
    filled->numbers = Dictionary{{"half", 0.5}, {"no", false}, {"two", 2}};
    filled->any = Dictionary{{"list", Array{1, "text", Data{7}, Date{12.5}, Dictionary{}}}};
    filled->leaf = std::make_shared<Leaf>(Leaf{"green"});
    return filled;
}

Data archived(const Node& node, Coder coder) {
    auto bytes = archive(node, coder);
    EXPECT_TRUE(bytes.ok()) << (bytes ? "" : bytes.error().description());
    return bytes ? std::move(*bytes) : Data();
}

Result<Unarchived<Node>> readNode(Bytes bytes, ReadOptions options) {
    DecodeBudget budget(bytes.size());
    return unarchive<Node>(bytes, options, budget);
}

Result<UnarchivedArray<Node>> readNodes(Bytes bytes, ReadOptions options) {
    DecodeBudget budget(bytes.size());
    return unarchiveArray<Node>(bytes, options, budget);
}

std::string readingFailure(Bytes bytes, ReadOptions options) {
    const auto read = readNode(bytes, options);
    return read ? "read" : std::string(read.error().localizedDescription());
}

Data fromHex(std::string_view digits) {
    Data bytes;
    int high = -1;
    for (char digit : digits) {
        const int value = hexDigitValue(digit);
        if (value < 0) {
            continue;
        }
        if (high < 0) {
            high = value;
        } else {
            bytes.push_back(static_cast<std::uint8_t>(high * 16 + value));
            high = -1;
        }
    }
    return bytes;
}

std::string toHex(Bytes bytes) {
    std::string text;
    for (std::uint8_t byte : bytes) {
        text += kLowerHexDigits[byte >> 4U];
        text += kLowerHexDigits[byte & 15U];
    }
    return text;
}

Data nodeArchive(std::size_t count, const std::function<void(Writer&)>& pairs) {
    Writer writer;
    writer.map(1);
    writer.text("root");
    beginObject(writer, "Node", count);
    pairs(writer);
    return std::move(*writer.take());
}

void beginObject(Writer& writer, std::string_view className, std::size_t count) {
    writer.tag(kShareableTag);
    writer.tag(kObjectTag);
    writer.array(2);
    writer.text(className);
    writer.map(count);
}

}  // namespace ksw::archive
