#include "platform/facts/trust.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <string>
#include <system_error>
#include <utility>

#include "platform/base/limits.h"
#include "platform/facts/certificates.h"
#include "platform/host/file_facts.h"
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

std::int64_t nanoseconds(const struct ::statx_timestamp& time) {
    return time.tv_sec * 1'000'000'000 + time.tv_nsec;
}

FileStamp stampAt(const std::string& path) {
    const Result<struct ::statx> facts =
        host::sys::statx(path, 0, STATX_INO | STATX_SIZE | STATX_MTIME | STATX_CTIME);
    if (!facts) {
        return {};
    }
    return {std::uint64_t{facts->stx_dev_major} << 32U | facts->stx_dev_minor, facts->stx_ino, facts->stx_size,
            nanoseconds(facts->stx_mtime), nanoseconds(facts->stx_ctime)};
}

/// The names in a folder in ascending order, without hidden ones; at most so many that a stuffed folder costs
/// little.
std::vector<std::string> namesIn(const std::string& folder) {
    std::vector<std::string> names;
    std::error_code failure;
    std::filesystem::directory_iterator entries(folder, failure);
    while (!failure && entries != std::filesystem::directory_iterator() &&
           names.size() < limits::kTrustedCertificatesMax) {
        std::string name = entries->path().filename();
        if (!name.starts_with('.')) {
            names.push_back(std::move(name));
        }
        entries.increment(failure);
    }
    std::sort(names.begin(), names.end());
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
    TrustReader(const LibCrypto& crypto, Trust::State& state) : crypto_(crypto), state_(state) {}

    void read() {
        state_.sources.clear();
        anchors_ = std::make_shared<TrustAnchors>(crypto_, ++state_.generation);
        for (const TrustFolder& folder : kFolders) {
            readFolder(state_.root + std::string(folder.path), folder.isMaker);
        }
        state_.anchors = std::move(anchors_);
    }

private:
    void note(const std::string& path) { state_.sources.push_back({path, stampAt(path)}); }

    void readFolder(const std::string& folder, bool isMaker) {
        note(folder);
        for (const std::string& name : namesIn(folder)) {
            const std::string path = folder + "/" + name;
            const Result<host::FileFacts> facts = host::fileFacts(path);
            if (facts && !facts->isRegularFile) {
                continue;
            }
            note(path);
            if (facts) {
                readFile(path, isMaker);
            }
        }
    }

    void readFile(const std::string& path, bool isMaker) {
        const Result<Data> content = host::readFile(path, limits::kSignatureMessageMax);
        std::vector<OwnedCertificate> certificates;
        if (content) {
            certificates = readCertificates(crypto_, *content, limits::kTrustedCertificatesMax);
        }
        if (certificates.empty()) {
            host::mainLog.error("No certificate in \"%{public}@\"", path);
        }
        for (OwnedCertificate& certificate : certificates) {
            if (anchors_->store() == nullptr ||
                crypto_.X509_STORE_add_cert(anchors_->store(), certificate.get()) != 1) {
                continue;
            }
            if (isMaker) {
                anchors_->makers_.push_back(std::move(certificate));
            }
        }
    }

    const LibCrypto& crypto_;
    Trust::State& state_;
    std::shared_ptr<TrustAnchors> anchors_;
};

bool Trust::isCurrent(const State& state, const std::string& root, std::int64_t now) {
    return state.anchors != nullptr && state.root == root &&
           std::all_of(state.sources.begin(), state.sources.end(), [&](const Source& source) {
               const FileStamp stamp = stampAt(source.path);
               return stamp == source.stamp && isSettled(std::max(stamp.changed, stamp.modified), now);
           });
}

std::shared_ptr<const TrustAnchors> Trust::current(const LibCrypto& crypto, std::int64_t now) {
    std::string root = host::hostRoot();
    auto state = state_.lock();
    if (!isCurrent(*state, root, now)) {
        state->root = std::move(root);
        TrustReader(crypto, *state).read();
    }
    return state->anchors;
}

}  // namespace ksw::facts
