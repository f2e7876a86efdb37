// watch_items: how many of the user's items are enabled and allowed, told again whenever items have changed. Ends
// with its input. Exit status 0, or 6 when no daemon answers.
#include <algorithm>
#include <iostream>
#include <memory>
#include <string>

#include <kestrelwood/kestrelwood.h>

namespace {

class Teller : public KSWListObserver {
public:
    void listDidChange(const std::shared_ptr<KSWList>& list) override {
        const KSWList::Items items = list->items();
        const auto launchable = std::count_if(items.begin(), items.end(), [](const auto& item) {
            return KSWDispositionIsLaunchable(item->disposition());
        });
        std::cout << launchable << " of " << items.size() << " items are enabled and allowed" << std::endl;
    }
};

}  // namespace

int main() {
    const std::shared_ptr<KSWList> list = KSWManager::shared().getItemsMatching(KSWItemTypeAll);
    if (list == nullptr) {
        std::cerr << "watch_items: no answer\n";
        return 6;
    }
    const auto teller = std::make_shared<Teller>();
    list->addListObserver(teller);
    teller->listDidChange(list);
    for (std::string line; std::getline(std::cin, line);) {
    }
    list->removeListObserver(teller);
}
