#include <algorithm>
#include <map>

#include "platform/base/limits.h"
#include "servers/kestrelwoodd/log.h"
#include "servers/kestrelwoodd/registry.h"

namespace ksw::daemon {

namespace {

/// The rows of one user that could be read, on their way to being families.
class Families {
public:
    struct Member {
        const ItemRow* row = nullptr;
        ItemPointer item;
        bool isPlaced = false;
    };
    struct Family {
        ItemPointer root;
        std::vector<const ItemRow*> rows;
        bool isTainted = false;  ///< A child is missing that may have been forbidden.
    };

    void add(const ItemRow& row, ItemPointer item) {
        order_.push_back(row.uuid);
        members_.emplace(row.uuid, Member{&row, std::move(item)});
    }

    /// A row under this container could not be read.
    void addDamaged(const UUID& container) { missing_.push_back(container); }

    std::vector<Family> build();

    /// Those that hang in no family: their container is gone, or too far away, or comes back to them.
    std::vector<const ItemRow*> unplaced() const;

private:
    Family familyOf(Member& root);

    std::vector<UUID> order_;
    std::map<UUID, Member> members_;
    std::map<UUID, std::vector<UUID>> children_;
    std::vector<UUID> missing_;
};

std::vector<Families::Family> Families::build() {
    std::vector<Member*> roots;
    for (const UUID& uuid : order_) {
        Member& member = members_.at(uuid);
        if (member.row->container) {
            children_[*member.row->container].push_back(uuid);
        } else {
            roots.push_back(&member);
        }
    }
    std::vector<Family> families;
    families.reserve(roots.size());
    for (Member* root : roots) {
        families.push_back(familyOf(*root));
    }
    return families;
}

/// Goes through the family level by level, the root first.
Families::Family Families::familyOf(Member& root) {
    Family family{root.item, {}, false};
    std::vector<Member*> level{&root};
    for (std::size_t depth = 0; depth <= limits::kContainerChainMax && !level.empty(); ++depth) {
        std::vector<Member*> below;
        for (Member* member : level) {
            member->isPlaced = true;
            family.rows.push_back(member->row);
            const bool missesChild =
                std::find(missing_.begin(), missing_.end(), member->row->uuid) != missing_.end();
            // Under the unknown developer each item is judged alone.
            family.isTainted |= missesChild && !member->item->isUnknownDeveloperRecord();
            std::vector<ItemPointer> children;
            for (const UUID& uuid : children_[member->row->uuid]) {
                below.push_back(&members_.at(uuid));
                children.push_back(below.back()->item);
            }
            adopt(member->item, children);
        }
        level = std::move(below);
    }
    // What hangs deeper than that is missing too.
    family.isTainted |= !level.empty();
    return family;
}

bool isUnknownDeveloper(const ItemRow& row) {
    return row.identifier == kUnknownDeveloper && row.uuid != UUID{} && !row.container &&
           (row.type & KSWItemTypeAll) == KSWItemTypeDeveloper;
}

std::vector<const ItemRow*> Families::unplaced() const {
    std::vector<const ItemRow*> rows;
    for (const auto& [uuid, member] : members_) {
        if (!member.isPlaced) {
            rows.push_back(member.row);
        }
    }
    return rows;
}

}  // namespace

Result<std::unique_ptr<Registry>> Registry::load(Store store, History history) {
    std::unique_ptr<Registry> registry(new Registry(std::move(store), history));
    if (Status read = registry->readStore(); !read) {
        return read.error();
    }
    if (Status read = registry->readKept(); !read) {
        return read.error();
    }
    if (Status read = registry->readManaged(); !read) {
        return read.error();
    }
    return registry;
}

Status Registry::readStore() {
    Status users = store_.readUsers(
        [this](Uid uid, std::string_view identifier) { index_.nameUser(uid, std::string(identifier)); });
    if (!users) {
        return users;
    }
    std::map<Uid, std::vector<StoredItem>> rows;
    Status items = store_.readItems([&rows](StoredItem item) { rows[item.row.uid].push_back(std::move(item)); });
    if (!items) {
        return items;
    }
    for (const auto& [uid, rowsOfUser] : rows) {
        place(rowsOfUser);
    }
    return {};
}

void Registry::markDamaged(const ItemRow& row, std::string_view why) {
    logError("the record of \"" + row.identifier + "\" of user " + std::to_string(row.uid) +
             " is damaged and left out: " + std::string(why));
    index_.setDamaged(row.uid, row.identifier, row.uuid);
}

void Registry::place(const std::vector<StoredItem>& rows) {
    Families families;
    for (const StoredItem& stored : rows) {
        Result<ItemPointer> item =
            stored.readable ? itemOf(stored.row) : Result<ItemPointer>(Error(FormatError::Malformed, "not a row"));
        Share& share = shares_[stored.row.uid];
        share.sizes[stored.row.identifier] = stored.row.record.size();
        share.bytes += stored.row.record.size();
        if (stored.row.choice) {
            (*choices_.lock())[stored.row.uid].emplace(stored.row.identifier, *stored.row.choice);
        }
        if (!item.ok() && isUnknownDeveloper(stored.row)) {
            // It holds nobody's decision, and its items must not be lost with it.
            item = newUnknownDeveloper(stored.row.uuid);
        }
        if (item.ok()) {
            families.add(stored.row, *std::move(item));
            continue;
        }
        markDamaged(stored.row, item.error().localizedDescription());
        if (stored.row.container) {
            families.addDamaged(*stored.row.container);
        }
    }
    for (const Families::Family& family : families.build()) {
        if (!family.isTainted) {
            (void)index_.publish({{family.rows.front()->uid, family.root, {}}});
            continue;
        }
        for (const ItemRow* row : family.rows) {
            markDamaged(*row, "one of its family is");
        }
    }
    for (const ItemRow* row : families.unplaced()) {
        markDamaged(*row, "its container is not there");
    }
    std::vector<std::string_view> identifiers;
    identifiers.reserve(rows.size());
    for (const StoredItem& stored : rows) {
        identifiers.emplace_back(stored.row.identifier);
    }
    index_.arrange(rows.front().row.uid, identifiers);
}

}  // namespace ksw::daemon
