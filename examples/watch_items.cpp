// watch_items: how many of the user's items may launch, told again whenever it may have changed. Ends with its
// input. Exit status 0, or 6 when no daemon answers.
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
            return KSWDispositionIsLaunchable(item->effectiveDisposition());
        });
        std::cout << launchable << " of " << items.size() << " items may launch" << std::endl;
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
    teller->listDidChange(list);
    list->addListObserver(teller);
    for (std::string line; std::getline(std::cin, line);) {
    }
    list->removeListObserver(teller);
}
