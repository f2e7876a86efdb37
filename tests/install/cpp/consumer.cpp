// Says what a disposition means, and whether a daemon answers.
#include <iostream>

#include <kestrelwood/KSWManager.h>
#include <kestrelwood/KSWTypes.h>
#include <kestrelwood/service_connection.h>

int main() {
    std::cout << KSWDispositionDescription(KSWDispositionEnabled | KSWDispositionAllowed) << '\n';
    ksw::ServiceConnection* connection = KSWManager::shared().connection();
    std::cout << (connection != nullptr && connection->serverStatus() ? "answers" : "silent") << '\n';
}
