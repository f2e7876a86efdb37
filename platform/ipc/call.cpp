#include "platform/ipc/call.h"

#include <mutex>
#include <new>

#include "platform/base/limits.h"

namespace ksw::ipc {

namespace {

void shrink(Data& buffer) {
    if (buffer.capacity() > limits::kBufferAheadMax) {
        Data().swap(buffer);
    } else {
        buffer.clear();
    }
}

}  // namespace

void Call::reset() {
    shrink(request);
    shrink(reply);
    kind = FrameKind::Reply;
    error.reset();
    handler = nullptr;
    isOver = false;
    hasNoMemory = false;
    isPosted = false;
    isParked = false;
}

void CallRow::add(Call* call) {
    call->next = nullptr;
    (last_ == nullptr ? first_ : last_->next) = call;
    last_ = call;
}

Call* CallRow::takeFirst() {
    Call* const call = first_;
    first_ = call->next;
    last_ = first_ == nullptr ? nullptr : last_;
    return call;
}

void CallRow::remove(const Call* call) {
    CallRow others;
    while (first_ != nullptr) {
        Call* const one = takeFirst();
        if (one != call) {
            others.add(one);
        }
    }
    *this = others;
}

Call* CallPool::borrow() {
    const std::lock_guard lock(lock_);
    if (free_.empty()) {
        try {
            free_.reserve(all_.size() + 1);
            all_.push_back(std::make_unique<Call>());
        } catch (const std::bad_alloc&) {
            return nullptr;
        }
        return all_.back().get();
    }
    Call* call = free_.back();
    free_.pop_back();
    return call;
}

void CallPool::release(Call* call) {
    call->reset();
    const std::lock_guard lock(lock_);
    free_.push_back(call);
}

}  // namespace ksw::ipc
