#include <kestrelwood/KSWApplications.h>

#include <utility>

#include "platform/facts/application_registry.h"

namespace ksw {

Application::Application(std::shared_ptr<const facts::Application> record) : record_(std::move(record)) {}

const std::string& Application::identifier() const {
    return record_->identifier;
}

const URL& Application::url() const {
    return record_->url;
}

bool Application::isPlaceholder() const {
    return record_->isPlaceholder;
}

std::string Application::localizedName() const {
    return record_->localizedName();
}

std::optional<std::string> Application::team() const {
    return record_->team();
}

std::vector<Application> applications(Uid uid) {
    std::vector<Application> found;
    for (facts::ApplicationPointer& record : facts::ApplicationRegistry::shared().all(uid)) {
        found.emplace_back(std::move(record));
    }
    return found;
}

std::optional<Application> applicationWithIdentifier(std::string_view identifier, Uid uid) {
    facts::ApplicationPointer record = facts::ApplicationRegistry::shared().find(identifier, uid);
    return record == nullptr ? std::nullopt : std::optional<Application>(std::move(record));
}

}  // namespace ksw
