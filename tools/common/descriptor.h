// descriptor.h: a file descriptor with an owner.
#pragma once

#include <utility>

#include <unistd.h>

namespace tools {

/// Closes its descriptor at its end. -1 is none.
class Descriptor {
public:
    explicit Descriptor(int number) : number_(number) {}
    Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor& operator=(Descriptor&&) = delete;
    ~Descriptor() {
        if (number_ >= 0) {
            close(number_);
        }
    }

    int number() const { return number_; }

private:
    int number_;
};

}  // namespace tools
