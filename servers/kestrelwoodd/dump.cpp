#include "servers/kestrelwoodd/dump.h"

#include <unordered_set>

namespace ksw::daemon {

namespace {

/// A text that grows up to a size, and counts the items that it has no room for.
class Dump {
public:
    explicit Dump(std::size_t bytesMax) : bytesMax_(bytesMax) {}

    void heading(const std::string& words, char underline) {
        take("\n" + words + "\n" + std::string(words.size(), underline) + "\n");
    }
    void line(const std::string& words) { take(words + "\n"); }
    void item(const KSWItem& item) {
        if (!take("\n" + item.dumpVerboseDescription())) {
            ++leftOut_;
        }
    }
    std::string finish() && {
        if (leftOut_ > 0) {
            text_ += "\n" + std::to_string(leftOut_) + " more items are left out\n";
        }
        return std::move(text_);
    }

private:
    bool take(const std::string& words) {
        isFull_ = isFull_ || text_.size() + words.size() > bytesMax_;
        if (!isFull_) {
            text_ += words;
        }
        return !isFull_;
    }

    const std::size_t bytesMax_;
    std::string text_;
    std::size_t leftOut_ = 0;
    bool isFull_ = false;
};

void addFamily(Dump& dump, const ItemPointer& root) {
    if (root->intersectsType(KSWItemTypeDeveloper)) {
        dump.heading("Developer: " + root->identifier().value_or("(none)"), '-');
    }
    forEachOf(root, [&dump](const ItemPointer& item) { dump.item(*item); });
}

}  // namespace

std::string dumpOf(const RecordIndex& records, std::size_t bytesMax) {
    Dump dump(bytesMax);
    dump.line("Records of kestrelwoodd");
    for (const auto& [uid, name] : records.users()) {
        dump.heading("User: " + name + " (" + std::to_string(uid) + ")", '=');
        std::unordered_set<const KSWItem*> shown;
        for (const ItemPointer& item : records.own(uid)) {
            const ItemPointer root = rootOf(item);
            if (shown.insert(root.get()).second) {
                addFamily(dump, root);
            }
        }
        for (const std::string& identifier : records.damaged(uid)) {
            dump.line("\n  Damaged record: " + identifier);
        }
    }
    return std::move(dump).finish();
}

}  // namespace ksw::daemon
