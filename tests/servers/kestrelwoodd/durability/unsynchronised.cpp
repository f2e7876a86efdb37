#include "tests/servers/kestrelwoodd/durability/unsynchronised.h"

#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <iterator>

namespace ksw::daemon::test {

namespace {

/// What a disk writes whole or not at all, in bytes.
constexpr std::size_t kSector = 512;

bool exists(const std::string& path) {
    return access(path.c_str(), F_OK) == 0;
}

std::vector<char> contentOf(const std::string& path) {
    std::ifstream file(path, std::ifstream::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace

void Unsynchronised::opened(const std::string& path) {
    if (const auto known = copies_.find(path); known != copies_.end() && !known->second.isRemoved) {
        return;
    }
    Copy& copy = copies_[path];
    copy = Copy{};
    if (exists(path)) {
        copy.kept = contentOf(path);
    }
}

void Unsynchronised::wrote(const std::string& path, const void* bytes, std::size_t size, std::size_t offset) {
    const char* const first = static_cast<const char*>(bytes);
    copies_[path].steps.push_back({offset, Content(first, first + size), ++steps_});
}

void Unsynchronised::cut(const std::string& path, std::size_t size) {
    copies_[path].steps.push_back({size, std::nullopt, ++steps_});
}

void Unsynchronised::synchronised(const std::string& path) {
    Copy& copy = copies_[path];
    Content content = copy.kept.value_or(Content());
    for (const Step& step : copy.steps) {
        carryOut(content, step, SIZE_MAX);
    }
    copy.kept = std::move(content);
    copy.steps.clear();
}

void Unsynchronised::failed(const std::string& path) {
    copies_[path].steps.clear();
}

void Unsynchronised::removed(const std::string& path) {
    copies_[path].isRemoved = true;
}

void Unsynchronised::carryOut(Content& content, const Step& step, std::size_t size) {
    if (!step.bytes) {
        content.resize(step.offset);
        return;
    }
    const std::size_t length = std::min(size, step.bytes->size());
    content.resize(std::max(content.size(), step.offset + length));
    std::copy_n(step.bytes->begin(), length, content.begin() + static_cast<std::ptrdiff_t>(step.offset));
}

Unsynchronised::Content Unsynchronised::remains(const Copy& copy, Death death, unsigned last,
                                                std::mt19937& random) {
    Content content = copy.kept.value_or(Content());
    for (const Step& step : copy.steps) {
        if (death == Death::LosingHereAndThere) {
            // Each step by itself: lost, torn at a sector, or there.
            const auto fate = random() % 4;
            if (fate >= 2) {
                carryOut(content, step, fate == 2 ? random() % 9 * kSector : SIZE_MAX);
            }
        } else if (death == Death::LosingTheEnd && step.number <= last) {
            carryOut(content, step, step.number == last ? random() % 9 * kSector : SIZE_MAX);
        }
    }
    return content;
}

void Unsynchronised::lose(Death death, unsigned seed) const {
    std::mt19937 random(seed);
    const auto last = static_cast<unsigned>(random() % (steps_ + 1));
    for (const auto& [path, copy] : copies_) {
        if (copy.isRemoved) {
            // That it was removed may have been forgotten too.
            if (copy.kept && random() % 2 == 0) {
                std::ofstream(path, std::ofstream::binary | std::ofstream::trunc)
                    .write(copy.kept->data(), static_cast<std::streamsize>(copy.kept->size()));
            }
            continue;
        }
        if (!exists(path)) {
            continue;  // It has another name by now.
        }
        if (!copy.kept && death == Death::LosingAll) {
            unlink(path.c_str());
            continue;
        }
        const Content content = remains(copy, death, last, random);
        std::ofstream(path, std::ofstream::binary | std::ofstream::trunc)
            .write(content.data(), static_cast<std::streamsize>(content.size()));
    }
}

}  // namespace ksw::daemon::test
