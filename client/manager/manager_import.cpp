// manager_import.cpp: the file of login items from before there was an agent.

#include <kestrelwood/KSWAgentConnection.h>
#include <kestrelwood/KSWManager.h>

#include "client/manager/request_frame.h"
#include "platform/host/file_facts.h"
#include "platform/host/log.h"
#include "platform/host/user_folders.h"

using ksw::host::importLog;

bool KSWManager::importRosterLoginItemsAndDeleteWhenDone(bool deleteWhenDone) {
    const ksw::client::RequestActivity activity("Import Roster Login Items");
    std::optional<std::string> path = ksw::host::userDataFolder();
    if (!path) {
        importLog.error("failed to get application support directory");
        return false;
    }
    path->append("/com.velmont.kestrelwoodagent/backgrounditems.ksw");
    if (!ksw::host::fileFacts(*path).ok()) {
        importLog.notice("skipping call to agent, data file not found at %@", *path);
        return true;
    }
    return KSWAgentConnection::sharedInstance().importRosterLoginItemsAndDeleteWhenDone(deleteWhenDone);
}
