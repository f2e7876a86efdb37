#include "servers/kestrelwoodd/open_registry.h"

#include "platform/host/host_root.h"
#include "servers/common/set_aside.h"
#include "servers/kestrelwoodd/log.h"

namespace ksw::daemon {

using namespace servers;

namespace {

Result<std::unique_ptr<Registry>> openOnce(const std::string& path, std::int64_t pagesMax) {
    const Result<std::vector<std::string>> folders = setAsideFolders(path);
    if (!folders) {
        return folders.error();
    }
    Result<Store> store = Store::open(path, pagesMax);
    if (!store) {
        return store.error();
    }
    // Without room a commit takes longer, and is as good.
    static_cast<void>(store->makeRoomInJournal().ok());
    return Registry::load(*std::move(store), folders->empty() ? History::Whole : History::Lost);
}

std::string lossOf(const Error& damage, const std::string& folder) {
    return std::string(damage.localizedDescription()) + "; it was set aside in " + folder +
           ", and as long as that folder is there only an administrator can allow what has no record";
}

}  // namespace

Result<StateFolder> takeStateFolder() {
    return StateFolder::take(host::hostRoot(), "/var/lib/kestrelwood", "kestrelwoodd");
}

Result<OpenedRegistry> openRegistry(const std::string& path, std::int64_t pagesMax) {
    Result<std::unique_ptr<Registry>> registry = openOnce(path, pagesMax);
    std::optional<std::string> loss;
    if (!registry && saysDamaged(registry.error())) {
        const Result<std::string> folder = setAside(path);
        if (!folder) {
            return folder.error();
        }
        loss = lossOf(registry.error(), *folder);
        logError(*loss);
        registry = openOnce(path, pagesMax);
    }
    if (!registry) {
        return registry.error();
    }
    if (!loss && (*registry)->history() == History::Lost) {
        logError(path +
                 ": records were lost, and as long as a folder of set-aside files is beside it only an"
                 " administrator can allow what has no record");
    }
    return OpenedRegistry{*std::move(registry), std::move(loss)};
}

}  // namespace ksw::daemon
