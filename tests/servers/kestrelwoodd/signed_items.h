// signed_items.h: programs that somebody has signed, and a daemon that is asked about them.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <map>
#include <string>

#include "tests/servers/kestrelwoodd/record_requests.h"
#include "tests/support/file_times.h"
#include "tests/support/signing_support.h"

namespace ksw::daemon::test {

/// Programs that somebody has signed, and a daemon. Only the user who runs it may see whom the host trusts.
class ASignedItem : public facts::SigningTest {
protected:
    // What the daemon reads for an ordinary user it reads with his rights, also when root runs the test.
    ASignedItem() { EXPECT_EQ(chmod(files_.path().c_str(), 0755), 0); }

    const facts::Identity& signerOf(const std::string& organization) {
        const auto found = signers_.find(organization);
        if (found != signers_.end()) {
            return found->second;
        }
        facts::CertificateForm form;
        form.organization = organization;
        const std::string name = "signer" + std::to_string(signers_.size());
        return signers_.emplace(organization, certificates_.issue(trustedRoot(), name, form)).first->second;
    }
    void signBy(const facts::Identity& signer, const std::string& path) {
        const Status signedIt = facts::sign(path, request(&signer));
        ASSERT_TRUE(signedIt.ok()) << signedIt.error().description();
    }
    /// A program of its own; signed when an organization is given.
    std::string program(const std::string& name, const std::optional<std::string>& organization = "Example Org") {
        std::string path = copyOf("/bin/true", name);
        if (organization) {
            signBy(signerOf(*organization), path);
        }
        return path;
    }
    /// Puts another program in the place of one, with another date: the clock of files may stand still meanwhile.
    void replace(const std::string& path, const std::optional<std::string>& organization) {
        const std::string replacement = program("replacement", organization);
        ksw::test::setChanged(replacement, 1'790'000'000 + ++replacements_, 0);
        std::filesystem::rename(replacement, path);
    }

    static Dictionary job(const std::string& label, const std::string& path) {
        return {{std::string(KSWConfigLabel), Value(label)}, {std::string(KSWConfigExecutablePath), Value(path)}};
    }
    Answer askOfAgent(Operations::Operation operation, const std::string& label, const std::string& path) {
        return daemon_.ask(operation, owner_, kLegacyAgent, kNoURL, jobURL(label), job(label, path), owner_.uid);
    }
    Answer enterAgent(const std::string& label, const std::string& path) {
        return askOfAgent(&Operations::enter, label, path);
    }
    Answer enterDaemon(const std::string& label, const std::string& path) {
        return daemon_.ask(&Operations::enter, kRoot, kLegacyDaemon, kNoURL, jobURL(label), job(label, path), 0);
    }
    Answer enterBundle(KSWItemType type, const std::string& bundle, const std::optional<URL>& url = kNoURL) {
        return daemon_.ask(&Operations::enter, owner_, type, URL::fileURL(bundle), url, kNoConfiguration,
                           owner_.uid);
    }
    ItemPointer agent(const std::string& label) { return daemon_.record(owner_.uid, "8." + label); }
    ItemPointer developer(std::string_view identifier) { return daemon_.record(owner_.uid, identifier); }
    void setAllowed(const ItemPointer& record, bool allowed) {
        const ItemPointer changed = copyOfRecord(*record);
        changed->setAllowed(allowed);
        ASSERT_EQ(requests_.update(owner_, changed, owner_.uid).code, KSWErrorRecordUpdated);
    }
    static std::optional<std::string> developerOf(const Answer& answer) {
        return answer.item == nullptr ? std::nullopt : answer.item->container()->identifier();
    }

    DaemonInside daemon_;
    RecordRequests requests_{daemon_};
    const Caller owner_ = anOwner();
    std::map<std::string, facts::Identity> signers_;
    std::int64_t replacements_ = 0;
};

}  // namespace ksw::daemon::test
