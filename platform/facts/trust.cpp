#include "platform/facts/trust.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <string>
#include <utility>

#include "platform/base/limits.h"
#include "platform/facts/certificates.h"
#include "platform/host/file_facts.h"
#include "platform/host/file_rights.h"
#include "platform/host/host_root.h"
#include "platform/host/log.h"
#include "platform/host/sys.h"

namespace ksw::facts {

namespace {

struct TrustFolder {
    std::string_view path;
    bool isMaker;
};

constexpr std::array kFolders{
    TrustFolder{"/etc/kestrelwood/trust", false},
    TrustFolder{"/etc/kestrelwood/trust/maker", true},
    TrustFolder{"/usr/share/kestrelwood/trust", false},
    TrustFolder{"/usr/share/kestrelwood/trust/maker", true},
};

constexpr std::int64_t kSettlingTime = 2'000'000'000;

/// Whether what failed for this reason may go well the next time, though no file has changed by then.
bool mayPass(const Error& error) {
    constexpr std::array kPassing{EMFILE, ENFILE, ENOMEM, EIO};
    return std::find(kPassing.begin(), kPassing.end(), error.code()) != kPassing.end();
}

/// The names in a folder in ascending order, without hidden ones.
Result<std::vector<std::string>> visibleNamesIn(const std::string& folder) {
    Result<std::vector<std::string>> names = host::sys::namesIn(folder);
    if (names) {
        std::erase_if(*names, [](const std::string& name) { return name.starts_with('.'); });
        std::sort(names->begin(), names->end());
    }
    return names;
}

}  // namespace

TrustAnchors::TrustAnchors(const LibCrypto& crypto, std::uint64_t generation)
    : crypto_(crypto), store_(owned<OwnedStore>(crypto, crypto.X509_STORE_new())), generation_(generation) {}

bool TrustAnchors::isMaker(X509* certificate) const {
    return std::any_of(makers_.begin(), makers_.end(), [&](const OwnedCertificate& maker) {
        return crypto_.X509_cmp(maker.get(), certificate) == 0;
    });
}

bool isSettled(std::int64_t time, std::int64_t now) {
    return time <= now - kSettlingTime;
}

/// Reads all folders into a new set of anchors.
class TrustReader {
public:
    explicit TrustReader(const LibCrypto& crypto) : crypto_(crypto) {}

    /// A state of its own: when memory runs out half way, nobody takes the old anchors for what was read now.
    Trust::State read(std::string root, const Trust::State& former) {
        state_.root = std::move(root);
        state_.generation = former.generation + 1;
        state_.cut = former.cut;
        anchors_ = std::make_shared<TrustAnchors>(crypto_, state_.generation);
        for (const TrustFolder& folder : kFolders) {
            readFolder(state_.root + std::string(folder.path), folder.isMaker);
        }
        state_.anchors = std::move(anchors_);
        return std::move(state_);
    }

private:
    void noteFailure(const Error& error) { state_.isWhole = state_.isWhole && !mayPass(error); }

    void note(const std::string& path) { state_.sources.push_back({path, stampAt(path)}); }

    /// Leaves out the names that are not looked at; says so once.
    void cut(const std::string& folder, std::vector<std::string>& names) {
        constexpr std::size_t kMax = limits::kTrustedCertificatesMax;
        if (names.size() <= kMax) {
            state_.cut.erase(folder);
            return;
        }
        if (state_.cut.insert(folder).second) {
            host::mainLog.error("Only the first %ld of %ld files in \"%{public}@\" are looked at",
                                static_cast<std::int64_t>(kMax), static_cast<std::int64_t>(names.size()), folder);
        }
        names.resize(kMax);
    }

    void readFolder(const std::string& folder, bool isMaker) {
        note(folder);
        Result<std::vector<std::string>> names = visibleNamesIn(folder);
        if (!names) {
            noteFailure(names.error());
            return;
        }
        cut(folder, *names);
        for (const std::string& name : *names) {
            const std::string path = folder + "/" + name;
            const Result<host::FileFacts> facts = host::fileFacts(path);
            if (facts && !facts->isRegularFile) {
                continue;
            }
            note(path);
            if (facts) {
                readFile(path, isMaker);
            } else {
                noteFailure(facts.error());
            }
        }
    }

    void readFile(const std::string& path, bool isMaker) {
        const Result<Data> content = host::readFile(path, limits::kSignatureMessageMax);
        std::vector<OwnedCertificate> certificates;
        if (content) {
            certificates = readCertificates(crypto_, *content, limits::kTrustedCertificatesMax);
        } else {
            noteFailure(content.error());
        }
        if (certificates.empty()) {
            host::mainLog.error("No certificate in \"%{public}@\"", path);
        }
        for (OwnedCertificate& certificate : certificates) {
            // The certificate takes note of its extensions when they are first asked for: now, by this thread
            // alone.
            static_cast<void>(crypto_.X509_get_extension_flags(certificate.get()));
            if (anchors_->store() == nullptr ||
                crypto_.X509_STORE_add_cert(anchors_->store(), certificate.get()) != 1) {
                state_.isWhole = false;
                continue;
            }
            if (isMaker) {
                anchors_->makers_.push_back(std::move(certificate));
            }
        }
    }

    const LibCrypto& crypto_;
    Trust::State state_;
    std::shared_ptr<TrustAnchors> anchors_;
};

bool Trust::isCurrent(const State& state, const std::string& root, std::int64_t now) {
    return state.anchors != nullptr && state.isWhole && state.root == root &&
           std::all_of(state.sources.begin(), state.sources.end(), [&](const Source& source) {
               const FileStamp stamp = stampAt(source.path);
               return stamp == source.stamp && isSettled(std::max(stamp.changed, stamp.modified), now);
           });
}

std::shared_ptr<const TrustAnchors> Trust::current(const LibCrypto& crypto, std::int64_t now) {
    // Were they hidden from the user whom a server reads for, the host would seem to trust nobody, for everybody.
    const host::OwnRights own;
    std::string root = host::hostRoot();
    auto state = state_.lock();
    if (!isCurrent(*state, root, now)) {
        *state = TrustReader(crypto).read(std::move(root), *state);
    }
    return state->anchors;
}

}  // namespace ksw::facts
