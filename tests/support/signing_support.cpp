#include "tests/support/signing_support.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

namespace ksw::facts {

namespace {

constexpr const char* kConfiguration = R"(
[req]
distinguished_name = name
[name]
[ca]
basicConstraints = critical,CA:TRUE
keyUsage = critical,keyCertSign
subjectKeyIdentifier = hash
[webCa]
basicConstraints = critical,CA:TRUE
extendedKeyUsage = serverAuth
[shortCa]
basicConstraints = critical,CA:TRUE,pathlen:0
[signer]
basicConstraints = CA:FALSE
keyUsage = critical,digitalSignature
extendedKeyUsage = codeSigning
[plain]
extendedKeyUsage = codeSigning
[mail]
extendedKeyUsage = emailProtection
[everything]
extendedKeyUsage = anyExtendedKeyUsage
[nothing]
basicConstraints = CA:FALSE
[unknown]
extendedKeyUsage = codeSigning
1.2.3.4 = critical,ASN1:NULL
[encipherment]
keyUsage = critical,keyEncipherment
extendedKeyUsage = codeSigning
[anything]
commonName = supplied
organizationName = optional
)";

std::vector<std::string> keyArguments(const std::string& algorithm) {
    if (algorithm.starts_with("RSA:")) {
        return {"-newkey", "rsa:" + algorithm.substr(4)};
    }
    if (algorithm.starts_with("P-")) {
        return {"-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:" + algorithm};
    }
    return {"-newkey", algorithm};
}

void append(std::vector<std::string>& to, const std::vector<std::string>& more) {
    to.insert(to.end(), more.begin(), more.end());
}

}  // namespace

Data bytesOf(std::string_view text) {
    return {text.begin(), text.end()};
}

std::string textOf(Bytes bytes) {
    return {bytes.begin(), bytes.end()};
}

Data contentOf(const std::string& path) {
    std::ifstream file(path, std::ifstream::binary);
    EXPECT_TRUE(file.good()) << path;
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void writeContent(const std::string& path, Bytes content) {
    std::ofstream file(path, std::ofstream::binary | std::ofstream::trunc);
    file.write(reinterpret_cast<const char*>(content.data()), static_cast<std::streamsize>(content.size()));
    EXPECT_TRUE(file.good()) << path;
}

int run(const std::vector<std::string>& arguments, const std::string& output) {
    std::vector<char*> words;
    for (const std::string& argument : arguments) {
        words.push_back(const_cast<char*>(argument.c_str()));
    }
    words.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    ::posix_spawn_file_actions_addopen(&actions, 1, output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    ::posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    pid_t pid = 0;
    const int failure = ::posix_spawnp(&pid, words[0], &actions, nullptr, words.data(), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    int status = -1;
    if (failure != 0 || ::waitpid(pid, &status, 0) != pid || !WIFEXITED(status)) {
        return -1;
    }
    return WEXITSTATUS(status);
}

std::string makeApplication(const test::TempFolder& folder, const std::string& name,
                            const std::string& bundleIdentifier) {
    folder.writeFile(name + "/Contents/Info.plist",
                     "<plist><dict><key>QCBundleExecutable</key><string>main</string>"
                     "<key>QCBundleIdentifier</key><string>" +
                         bundleIdentifier + "</string></dict></plist>");
    const std::string program = folder.writeFile(name + "/Contents/Linux/main", "#!/bin/sh\n");
    EXPECT_EQ(::chmod(program.c_str(), 0755), 0);
    return folder.at(name);
}

CertificateMaker::CertificateMaker() {
    folder_.writeFile("openssl.cnf", kConfiguration);
}

Identity CertificateMaker::make(const std::string& name, const CertificateForm& form, const Identity* issuer) {
    Identity identity{folder_.at(name + ".key"), folder_.at(name + ".pem"), folder_.at(name + ".chain"), {}};
    makeCertificate(identity, form, "/CN=" + name + (form.organization.empty() ? "" : "/O=" + form.organization),
                    issuer);
    if (!form.to.empty()) {
        makeCertificateWithTimes(identity, form, issuer);
    }
    Data chain = contentOf(identity.certificate);
    if (issuer != nullptr) {
        identity.above = issuer->chain;
        const Data above = contentOf(issuer->chain);
        chain.insert(chain.end(), above.begin(), above.end());
    }
    writeContent(identity.chain, chain);
    return identity;
}

void CertificateMaker::makeCertificate(const Identity& identity, const CertificateForm& form,
                                       const std::string& subject, const Identity* issuer) {
    std::vector<std::string> arguments{"openssl", "req", "-x509", "-nodes", "-config", folder_.at("openssl.cnf")};
    append(arguments, keyArguments(form.algorithm));
    append(arguments, {"-keyout", identity.key, "-out", identity.certificate, "-" + form.digest, "-days",
                       std::to_string(form.days), "-extensions", form.section, "-subj", subject, "-utf8"});
    if (issuer != nullptr) {
        append(arguments, {"-CA", issuer->certificate, "-CAkey", issuer->key});
    }
    EXPECT_EQ(run(arguments), 0) << subject;
}

/// Makes the certificate again, for the same key and subject: only `openssl ca` takes times that are not from now.
void CertificateMaker::makeCertificateWithTimes(const Identity& identity, const CertificateForm& form,
                                                const Identity* issuer) {
    const std::string request = folder_.at("request");
    const std::string database = folder_.writeFile("index", "");
    const std::string configuration = folder_.writeFile(
        "times.cnf", std::string(kConfiguration) +
                         "[rules]\npolicy = anything\nunique_subject = no\nrand_serial = yes\ndatabase = " +
                         database + "\nnew_certs_dir = " + folder_.path() + "\n");
    ASSERT_EQ(run({"openssl", "x509", "-x509toreq", "-in", identity.certificate, "-signkey", identity.key, "-out",
                   request}),
              0);
    std::vector<std::string> arguments{
        "openssl",     "ca",       "-batch", "-config",   configuration, "-name",      "rules",
        "-preserveDN", "-notext",  "-md",    form.digest, "-extensions", form.section, "-startdate",
        form.from,     "-enddate", form.to,  "-in",       request,       "-out",       identity.certificate};
    if (issuer != nullptr) {
        append(arguments, {"-cert", issuer->certificate, "-keyfile", issuer->key});
    } else {
        append(arguments, {"-selfsign", "-keyfile", identity.key});
    }
    ASSERT_EQ(run(arguments), 0) << identity.certificate;
}

Identity CertificateMaker::root(const std::string& name, CertificateForm form) {
    form.section = form.section == "signer" ? "ca" : form.section;
    return make(name, form, nullptr);
}

Identity CertificateMaker::issue(const Identity& issuer, const std::string& name, const CertificateForm& form) {
    return make(name, form, &issuer);
}

Identity CertificateMaker::authority(const Identity& issuer, const std::string& name, CertificateForm form) {
    form.section = form.section == "signer" ? "ca" : form.section;
    return make(name, form, &issuer);
}

Data CertificateMaker::message(const Identity& signer, Bytes content, const std::vector<std::string>& more) {
    writeContent(folder_.at("content"), content);
    std::vector<std::string> arguments{"openssl",  "cms",
                                       "-sign",    "-binary",
                                       "-outform", "DER",
                                       "-in",      folder_.at("content"),
                                       "-out",     folder_.at("message"),
                                       "-signer",  signer.certificate,
                                       "-inkey",   signer.key};
    if (!signer.above.empty()) {
        append(arguments, {"-certfile", signer.above});
    }
    append(arguments, more);
    EXPECT_EQ(run(arguments), 0);
    return contentOf(folder_.at("message"));
}

void SigningTest::trust(const Identity& identity) const {
    const std::string name = std::filesystem::path(identity.certificate).filename();
    host_.folder().writeFile("etc/kestrelwood/trust/" + name, textOf(contentOf(identity.certificate)));
}

void SigningTest::trustAsMaker(const Identity& identity) const {
    const std::string name = std::filesystem::path(identity.certificate).filename();
    host_.folder().writeFile("usr/share/kestrelwood/trust/maker/" + name, textOf(contentOf(identity.certificate)));
}

const Identity& SigningTest::trustedRoot() {
    if (!root_) {
        root_ = certificates_.root("root");
        trust(*root_);
    }
    return *root_;
}

const Identity& SigningTest::signer() {
    if (!signer_) {
        signer_ = certificates_.issue(trustedRoot(), "signer");
    }
    return *signer_;
}

SigningRequest SigningTest::request(const Identity* signer, const std::string& identifier) {
    SigningRequest request;
    request.identifier = identifier;
    request.team = "TEAM000001";
    if (signer != nullptr) {
        request.key = contentOf(signer->key);
        request.chain = contentOf(signer->chain);
    }
    return request;
}

std::string SigningTest::signedFile(const std::string& name, const std::string& code,
                                    const std::string& identifier) {
    std::string path = files_.writeFile(name, code);
    const Status status = sign(path, request(&signer(), identifier));
    EXPECT_TRUE(status.ok()) << status.error().description();
    return path;
}

std::string SigningTest::copyOf(const std::string& file, const std::string& name) const {
    std::string path = files_.at(name);
    writeContent(path, contentOf(file));
    ::chmod(path.c_str(), 0755);
    return path;
}

std::string SigningTest::signedProgram(const std::string& program, const std::string& name,
                                       const std::string& identifier) {
    std::string path = copyOf(program, name);
    const Status status = sign(path, request(&signer(), identifier));
    EXPECT_TRUE(status.ok()) << status.error().description();
    return path;
}

std::string SigningTest::fileWith(const std::string& name, std::string_view code, Bytes directory,
                                  const std::optional<Data>& message) const {
    Data content = bytesOf(code);
    const Result<Data> signature =
        encodeSignature(codeKindOf(content), SignatureParts{Data(directory.begin(), directory.end()), message});
    EXPECT_TRUE(signature.ok());
    content.insert(content.end(), signature->begin(), signature->end());
    writeContent(files_.at(name), content);
    return files_.at(name);
}

CodeDirectory SigningTest::directoryOf(std::string_view code) {
    CodeDirectory directory;
    directory.identifier = "com.example.tool";
    const Data bytes = bytesOf(code);
    directory.format = formatOf(codeKindOf(bytes));
    directory.codeSize = code.size();
    directory.codeDigest = *sha256Of(*LibCrypto::shared(), bytes);
    return directory;
}

std::string SigningTest::signedByOpenssl(const Identity& signer, const std::vector<std::string>& more) {
    const Data directory = *encodeDirectory(directoryOf("some code"));
    return fileWith("signed-by-openssl", "some code", directory, certificates_.message(signer, directory, more));
}

Result<std::shared_ptr<const CodeFacts>> SigningTest::judged(const std::string& path) {
    Verifier verifier;
    const Result<StaticCode> code = StaticCode::open(path, verifier);
    return code ? code->facts() : Result<std::shared_ptr<const CodeFacts>>(code.error());
}

CodeStatus SigningTest::statusOf(const std::string& path) {
    return facts::statusOf(judged(path));
}

CodeStatus SigningTest::promptStatus(const std::string& path) {
    const auto start = std::chrono::steady_clock::now();
    const CodeStatus status = statusOf(path);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(100) * kSlowness) << path;
    return status;
}

}  // namespace ksw::facts
