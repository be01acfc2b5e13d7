#include "appliance/mqtt/link/tls_files.h"

#include "tests/support/certificate.h"

#include <cstdlib>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using mqtt::tlsFilesMistake;
using testing::HasSubstr;

class TlsFiles : public testing::Test {
protected:
    TlsFiles() {
        std::string name = "/tmp/tls-files-XXXXXX";
        folder = mkdtemp(name.data());
        chmod(folder.c_str(), 0755);
        files = {.authorities = write("ca.pem", own.pem()),
                 .certificate = write("own.pem", own.pem()),
                 .key = write("own.key", own.keyPem(), 0600)};
    }
    ~TlsFiles() override {
        for (const std::string& path : written) {
            unlink(path.c_str());
        }
        rmdir(folder.c_str());
    }

    std::string write(const std::string& name, const std::string& text, mode_t mode = 0644) {
        const std::string path = folder + '/' + name;
        std::ofstream(path) << text;
        chmod(path.c_str(), mode);
        written.push_back(path);
        return path;
    }

    scripted::Certificate own;
    std::string folder;
    std::vector<std::string> written;
    mqtt::TlsFiles files;
};

TEST_F(TlsFiles, GoodOnesHaveNoMistake) {
    EXPECT_EQ(tlsFilesMistake(files), "");
    EXPECT_EQ(tlsFilesMistake({}), "");
    EXPECT_EQ(mqtt::validityMistake(files.certificate), "");
    chmod(files.key.c_str(), 0640);
    EXPECT_EQ(tlsFilesMistake(files), "") << "the group of the owner may read it";
}

TEST_F(TlsFiles, AreNeededTogether) {
    EXPECT_EQ(tlsFilesMistake({"", files.certificate, ""}), "CertFile and KeyFile are needed together");
    EXPECT_EQ(tlsFilesMistake({"", "", files.key}), "CertFile and KeyFile are needed together");
}

TEST_F(TlsFiles, MissingOnesAreNamed) {
    const std::string missing = folder + "/missing.pem";
    const std::string reason = "the file " + missing + " can't be read: No such file or directory";
    EXPECT_EQ(tlsFilesMistake({missing, "", ""}), reason);
    EXPECT_EQ(tlsFilesMistake({"", missing, files.key}), reason);
    EXPECT_EQ(tlsFilesMistake({"", files.certificate, missing}), reason);
    EXPECT_EQ(tlsFilesMistake({"", files.certificate, folder}),
              "the file " + folder + " can't be read: it is no file");
}

TEST_F(TlsFiles, OtherContentsAreNamed) {
    const std::string text = write("text", "no PEM\n", 0600);
    EXPECT_EQ(tlsFilesMistake({text, "", ""}), "the file " + text + " has no certificate in PEM");
    EXPECT_EQ(tlsFilesMistake({"", text, files.key}), "the file " + text + " has no certificate in PEM");
    EXPECT_EQ(tlsFilesMistake({"", files.certificate, text}), "the key " + text + " is no key in PEM");
}

TEST_F(TlsFiles, KeyOfAnotherCertificateIsRefused) {
    const std::string other = write("other.key", scripted::Certificate().keyPem(), 0600);
    EXPECT_EQ(tlsFilesMistake({"", files.certificate, other}),
              "the key " + other + " does not belong to the certificate " + files.certificate);
}

TEST_F(TlsFiles, KeyThatEveryUserMayReadIsRefused) {
    for (const mode_t mode : {0644, 0602, 0601}) {
        chmod(files.key.c_str(), mode);
        EXPECT_THAT(tlsFilesMistake(files), HasSubstr("every user may use it")) << std::oct << mode;
    }
}

TEST_F(TlsFiles, KeyWithPassphraseIsRefused) {
    const std::string key = write("secret.key", own.keyPem("open sesame"), 0600);
    EXPECT_EQ(tlsFilesMistake({"", files.certificate, key}),
              "the key " + key + " has a passphrase; save it without one");
}

// As another user, because root may read everything.
TEST_F(TlsFiles, KeyWithoutReadRightIsNamed) {
    chmod(files.key.c_str(), 0);
    const pid_t child = fork();
    if (child == 0) {
        const bool changed = geteuid() != 0 || setuid(65534) == 0;
        const bool named =
            tlsFilesMistake(files) == "the file " + files.key + " can't be read: Permission denied";
        _exit(changed && named ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

TEST_F(TlsFiles, TimesThatAreOverOrToComeAreSaid) {
    constexpr long day = 86400;
    const std::string over = write("over.pem", scripted::Certificate("DNS:a", -3 * day, -2 * day).pem());
    const std::string later = write("later.pem", scripted::Certificate("DNS:a", 2 * day, 3 * day).pem());
    EXPECT_THAT(mqtt::validityMistake(over), testing::MatchesRegex("it has expired on 20..-..-.."));
    EXPECT_THAT(mqtt::validityMistake(later), testing::MatchesRegex("it is valid from 20..-..-.. on"));
    EXPECT_EQ(mqtt::validityMistake(folder + "/missing.pem"), "");
}

} // namespace
