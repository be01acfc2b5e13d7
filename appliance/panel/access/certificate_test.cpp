#include "appliance/panel/access/certificate.h"

#include "appliance/operating/operating_fixture.h"
#include "appliance/panel/access/private_file.h"

#include <cstdio>
#include <ctime>
#include <gmock/gmock.h>
#include <memory>
#include <openssl/pem.h>
#include <openssl/x509v3.h>
#include <system_error>
#include <vector>

using testing::ContainsRegex;
using testing::MatchesRegex;

namespace panel {
namespace {

struct Free {
    void operator()(X509* certificate) const { X509_free(certificate); }
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
    void operator()(FILE* file) const { fclose(file); }
};
using Certificate = std::unique_ptr<X509, Free>;
using Key = std::unique_ptr<EVP_PKEY, Free>;

class PanelCertificate : public OperatingTest {
protected:
    void make() const { makeOwnCertificate(certificateFile_, keyFile_, names_); }
    std::string texts() const { return readPrivateFile(certificateFile_) + readPrivateFile(keyFile_); }

    Certificate certificate() const {
        const std::unique_ptr<FILE, Free> file(fopen(certificateFile_.c_str(), "re"));
        return Certificate(file == nullptr ? nullptr : PEM_read_X509(file.get(), nullptr, nullptr, nullptr));
    }
    Key key() const {
        const std::unique_ptr<FILE, Free> file(fopen(keyFile_.c_str(), "re"));
        return Key(file == nullptr ? nullptr : PEM_read_PrivateKey(file.get(), nullptr, nullptr, nullptr));
    }
    // Signs the certificate again with another end.
    void endIn(long seconds) const {
        const Certificate old = certificate();
        X509_gmtime_adj(X509_getm_notAfter(old.get()), seconds);
        ASSERT_GT(X509_sign(old.get(), key().get(), EVP_sha256()), 0);
        const std::unique_ptr<FILE, Free> file(fopen(certificateFile_.c_str(), "we"));
        ASSERT_EQ(PEM_write_X509(file.get(), old.get()), 1);
    }
    bool isMadeAnew() const {
        const std::string before = texts();
        make();
        return texts() != before;
    }

    std::string certificateFile_ = (root / "etc/decoder/certificate.pem").string();
    std::string keyFile_ = (root / "etc/decoder/key.pem").string();
    std::vector<std::string> names_{"localhost", "decoder.example.org", "192.0.2.7", "2001:db8::7"};
};

TEST_F(PanelCertificate, IsForAllNamesAndSignedByItself) {
    make();
    const Certificate made = certificate();
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(X509_check_host(made.get(), "localhost", 0, 0, nullptr), 1);
    EXPECT_EQ(X509_check_host(made.get(), "decoder.example.org", 0, 0, nullptr), 1);
    EXPECT_EQ(X509_check_host(made.get(), "other.example.org", 0, 0, nullptr), 0);
    EXPECT_EQ(X509_check_ip_asc(made.get(), "192.0.2.7", 0), 1);
    EXPECT_EQ(X509_check_ip_asc(made.get(), "2001:db8::7", 0), 1);
    EXPECT_EQ(X509_verify(made.get(), key().get()), 1);
    EXPECT_EQ(X509_check_purpose(made.get(), X509_PURPOSE_SSL_SERVER, 0), 1);
    EXPECT_EQ(X509_check_ca(made.get()), 0);
}

TEST_F(PanelCertificate, LastsFromYesterdayForAboutTwoYears) {
    make();
    const Certificate made = certificate();
    std::time_t now = std::time(nullptr);
    std::time_t later = now + 700 * 86400;
    std::time_t tooLate = now + 825 * 86400;
    EXPECT_LT(X509_cmp_time(X509_get0_notBefore(made.get()), &now), 0);
    EXPECT_GT(X509_cmp_time(X509_get0_notAfter(made.get()), &later), 0);
    EXPECT_LT(X509_cmp_time(X509_get0_notAfter(made.get()), &tooLate), 0) << "browsers refuse it";
}

TEST_F(PanelCertificate, FilesAreForTheirOwnerOnly) {
    make();
    EXPECT_THAT(readPrivateFile(keyFile_), ContainsRegex("BEGIN PRIVATE KEY"));
    EXPECT_THAT(readPrivateFile(certificateFile_), ContainsRegex("BEGIN CERTIFICATE"));
}

TEST_F(PanelCertificate, IsKeptWhileItIsGood) {
    make();
    EXPECT_FALSE(isMadeAnew());
    names_.pop_back();
    EXPECT_FALSE(isMadeAnew()) << "it may have more names";
    endIn(31 * 86400);
    EXPECT_FALSE(isMadeAnew());
}

TEST_F(PanelCertificate, IsMadeAnewForAnotherName) {
    make();
    names_.emplace_back("new.example.org");
    EXPECT_TRUE(isMadeAnew());
    names_.emplace_back("192.0.2.8");
    EXPECT_TRUE(isMadeAnew());
}

TEST_F(PanelCertificate, IsMadeAnewAMonthBeforeItsEnd) {
    make();
    endIn(29 * 86400);
    EXPECT_TRUE(isMadeAnew());
    endIn(-1);
    EXPECT_TRUE(isMadeAnew());
}

TEST_F(PanelCertificate, IsMadeAnewWhenTheFilesAreNotAPair) {
    make();
    const std::string otherKey = readPrivateFile(keyFile_);
    std::filesystem::remove(keyFile_);
    EXPECT_TRUE(isMadeAnew()) << "no key";
    writePrivateFile(keyFile_, otherKey);
    EXPECT_TRUE(isMadeAnew()) << "the key of another certificate";
    writePrivateFile(keyFile_, "no key");
    EXPECT_TRUE(isMadeAnew());
    writePrivateFile(certificateFile_, "no certificate");
    EXPECT_TRUE(isMadeAnew());
    EXPECT_FALSE(isMadeAnew());
}

TEST_F(PanelCertificate, SerialNumbersDiffer) {
    make();
    const Certificate first = certificate();
    std::filesystem::remove(keyFile_);
    make();
    EXPECT_NE(
        ASN1_INTEGER_cmp(X509_get0_serialNumber(first.get()), X509_get0_serialNumber(certificate().get())),
        0);
}

TEST_F(PanelCertificate, FailureSaysWhatFailed) {
    names_ = {"a,b:c"};
    EXPECT_THROW(make(), std::runtime_error);
    EXPECT_FALSE(std::filesystem::exists(certificateFile_));
    names_ = {"localhost"};
    keyFile_ = (root / "nowhere/key.pem").string();
    EXPECT_THROW(make(), std::system_error);
}

TEST_F(PanelCertificate, KeyThatOthersMayReadIsAnError) {
    make();
    std::filesystem::permissions(keyFile_, std::filesystem::perms::others_read,
                                 std::filesystem::perm_options::add);
    EXPECT_THROW(make(), std::runtime_error);
}

TEST_F(PanelCertificate, FingerprintIsAsBrowsersShowIt) {
    make();
    EXPECT_THAT(certificateFingerprint(certificateFile_),
                MatchesRegex("([0-9A-F][0-9A-F]:){31}[0-9A-F][0-9A-F]"));
    EXPECT_THROW(certificateFingerprint(keyFile_), std::runtime_error);
    EXPECT_THROW(certificateFingerprint((root / "nowhere").string()), std::runtime_error);
}

} // namespace
} // namespace panel
