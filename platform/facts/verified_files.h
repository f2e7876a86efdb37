// verified_files.h: remembers which signed files were verified and what came of it, so that an unchanged one is not
// read again. Bounded; the file that was asked for longest ago is forgotten first.
#pragma once

#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <optional>

#include "platform/base/guarded.h"
#include "platform/base/limits.h"
#include "platform/facts/certificates.h"
#include "platform/facts/code_facts.h"
#include "platform/facts/code_file.h"

namespace ksw::facts {

/// What a verification rested on. It stands for as long as all of this is as it was.
struct VerifiedState {
    FileStamp code;
    std::uint64_t trustGeneration = 0;

    friend bool operator==(const VerifiedState&, const VerifiedState&) = default;
};

/// What came of it.
struct Verified {
    std::shared_ptr<const CodeFacts> facts;
    std::optional<Sha256> informationDigest;  ///< Of the information property list that was signed with the code.
    Validity validity;
    std::size_t size = 0;  ///< Of the signature in the file, in bytes: what it says takes about as much memory.
};

/// Any thread.
class VerifiedFiles {
public:
    explicit VerifiedFiles(std::size_t countMax, std::size_t bytesMax = limits::kVerifiedBytesMax)
        : countMax_(countMax), bytesMax_(bytesMax) {}

    /// What came of verifying this very state; absent when it is not known or no longer holds at `time` (seconds
    /// since 1970).
    std::optional<Verified> find(const VerifiedState& state, std::int64_t time);
    /// What is larger than all that may be remembered is not.
    void remember(const VerifiedState& state, const Verified& verified);
    std::size_t size();

private:
    struct Entry {
        VerifiedState state;
        Verified verified;
    };
    struct Key {
        std::uint64_t device;
        std::uint64_t inode;
        friend auto operator<=>(const Key&, const Key&) = default;
    };
    struct Content {
        std::list<Entry> entries;  // the one asked for last stands first
        std::map<Key, std::list<Entry>::iterator> places;
        std::size_t bytes = 0;

        void forget(std::list<Entry>::iterator entry);
    };

    static Key keyOf(const VerifiedState& state) { return {state.code.device, state.code.inode}; }

    const std::size_t countMax_;
    const std::size_t bytesMax_;
    Guarded<Content> content_;
};

}  // namespace ksw::facts
