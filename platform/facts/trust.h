// trust.h: the certificates that this host trusts to vouch for signers: those in /etc/kestrelwood/trust and
// /usr/share/kestrelwood/trust, PEM or DER, one file or many. The platform maker's own stand in the sub-folder
// "maker" of each.
#pragma once

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "platform/base/guarded.h"
#include "platform/facts/code_file.h"
#include "platform/facts/libcrypto.h"
#include "platform/host/clock.h"

namespace ksw::facts {

/// A set of trusted certificates. Immutable; any thread.
class TrustAnchors {
public:
    TrustAnchors(const LibCrypto& crypto, std::uint64_t generation);

    X509_STORE* store() const { return store_.get(); }
    bool isMaker(X509* certificate) const;
    /// Differs between any two sets that a process has read.
    std::uint64_t generation() const { return generation_; }

private:
    friend class TrustReader;

    const LibCrypto& crypto_;
    OwnedStore store_;
    std::vector<OwnedCertificate> makers_;
    std::uint64_t generation_;
};

/// Whether a time stamp can be relied on to change with the next change: two changes within the granularity of a
/// file system's clock (up to 2 s) bear the same time. `time` and `now` in nanoseconds since 1970.
bool isSettled(std::int64_t time, std::int64_t now);

/// Reads the trust folders, and again when one of them or a file in them has changed. Any thread.
class Trust {
public:
    /// The anchors as they are now. `now` in nanoseconds since 1970. Blocks for a few looks at the file system.
    std::shared_ptr<const TrustAnchors> current(const LibCrypto& crypto, std::int64_t now);

private:
    /// A file or folder that the anchors were read from, and how it was; a zero stamp when it was not there.
    struct Source {
        std::string path;
        FileStamp stamp;
    };
    struct State {
        std::string root;
        std::vector<Source> sources;
        std::shared_ptr<const TrustAnchors> anchors;
        std::uint64_t generation = 0;
        std::set<std::string> cut;  ///< Folders with more files than are looked at, which was logged.
        /// False when something could not be read that may be readable the next time, as it stands.
        bool isWhole = true;
    };

    friend class TrustReader;
    static bool isCurrent(const State& state, const std::string& root, std::int64_t now);

    Guarded<State> state_;
};

}  // namespace ksw::facts
