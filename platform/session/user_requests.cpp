#include "platform/session/user_requests.h"

#include <condition_variable>
#include <map>
#include <mutex>
#include <new>
#include <optional>
#include <system_error>
#include <utility>

#include "platform/base/text.h"
#include "platform/host/sys_threads.h"
#include "platform/ipc/body.h"

namespace ksw::session {

namespace {

/// A request that is under way, and how it ended.
struct UnderWay {
    bool isLate = false;  ///< Its caller has gone.
    std::optional<Status> end;
};

Error tooLate(Uid uid) {
    return Error(ConnectionError::Interrupted, format("a service of user %d has not answered in time", uid));
}

Status endOf(const UserRequests::Request& request) try { return request(); } catch (const std::bad_alloc&) {
    return ipc::noMemoryError();
}

}  // namespace

struct UserRequests::Inside {
    std::mutex mutex;  // guards all below
    std::condition_variable changed;
    std::map<Uid, std::shared_ptr<UnderWay>> requests;

    bool isFree(Uid uid) const { return !requests.contains(uid); }
    bool isStuck(Uid uid) const {
        const auto found = requests.find(uid);
        return found != requests.end() && found->second->isLate;
    }
    void finish(Uid uid, UnderWay& request, Status end) {
        const std::lock_guard lock(mutex);
        request.end.emplace(std::move(end));
        requests.erase(uid);
        changed.notify_all();
    }
};

UserRequests::UserRequests(std::chrono::milliseconds patience)
    : patience_(patience), inside_(std::make_shared<Inside>()) {}

Status UserRequests::run(Uid uid, Request request) try {
    const auto deadline = std::chrono::steady_clock::now() + patience_;
    std::unique_lock lock(inside_->mutex);
    inside_->changed.wait_until(lock, deadline, [&] { return inside_->isFree(uid) || inside_->isStuck(uid); });
    if (!inside_->isFree(uid)) {
        return tooLate(uid);
    }
    const auto underWay = std::make_shared<UnderWay>();
    const auto place = inside_->requests.emplace(uid, underWay).first;
    try {
        host::sys::startThread([inside = inside_, underWay, uid, request = std::move(request)] {
            inside->finish(uid, *underWay, endOf(request));
        }).detach();
    } catch (...) {
        inside_->requests.erase(place);
        throw;
    }
    if (inside_->changed.wait_until(lock, deadline, [&] { return underWay->end.has_value(); })) {
        return *underWay->end;
    }
    underWay->isLate = true;
    inside_->changed.notify_all();
    return tooLate(uid);
} catch (const std::bad_alloc&) {
    return ipc::noMemoryError();
} catch (const std::system_error& failure) {
    return Error(kPosixErrorDomain, failure.code().value(), failure.what());
}

}  // namespace ksw::session
