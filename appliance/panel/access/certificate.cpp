#include "appliance/panel/access/certificate.h"

#include "appliance/panel/access/private_file.h"

#include <arpa/inet.h>
#include <array>
#include <cstdio>
#include <memory>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>
#include <stdexcept>

namespace panel {
namespace {

constexpr long day = 86400;
constexpr long lifetime = 800 * day; // browsers refuse certificates that last much longer
constexpr int leastDaysLeft = 30;

struct Free {
    void operator()(X509* certificate) const { X509_free(certificate); }
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
    void operator()(BIO* text) const { BIO_free(text); }
    void operator()(X509_EXTENSION* extension) const { X509_EXTENSION_free(extension); }
    void operator()(FILE* file) const { fclose(file); }
};
template<class Object>
using Pointer = std::unique_ptr<Object, Free>;

void require(bool done) {
    if (!done)
        throw std::runtime_error("the panel's certificate can't be made");
}

bool isNumeric(const std::string& name) {
    std::array<unsigned char, 16> bytes{};
    return inet_pton(AF_INET, name.c_str(), bytes.data()) == 1 ||
           inet_pton(AF_INET6, name.c_str(), bytes.data()) == 1;
}

std::string alternativeNames(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names)
        text += (text.empty() ? "" : ",") + std::string(isNumeric(name) ? "IP:" : "DNS:") + name;
    return text;
}

void addExtension(X509* certificate, int kind, const std::string& value) {
    const Pointer<X509_EXTENSION> extension(X509V3_EXT_conf_nid(nullptr, nullptr, kind, value.c_str()));
    require(extension != nullptr && X509_add_ext(certificate, extension.get(), -1) == 1);
}

void setSerial(X509* certificate) {
    std::array<unsigned char, 16> bytes{};
    require(RAND_bytes(bytes.data(), bytes.size()) == 1);
    bytes[0] &= 0x7f;
    BIGNUM* number = BN_bin2bn(bytes.data(), bytes.size(), nullptr);
    const bool done =
        number != nullptr && BN_to_ASN1_INTEGER(number, X509_get_serialNumber(certificate)) != nullptr;
    BN_free(number);
    require(done);
}

Pointer<X509> signedCertificate(EVP_PKEY* key, const std::vector<std::string>& names) {
    Pointer<X509> certificate(X509_new());
    require(certificate != nullptr && X509_set_version(certificate.get(), 2) == 1);
    setSerial(certificate.get());
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -day);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), lifetime);
    X509_NAME* subject = X509_get_subject_name(certificate.get());
    require(X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_ASC,
                                       reinterpret_cast<const unsigned char*>("Network video decoder"), -1,
                                       -1, 0) == 1);
    require(X509_set_issuer_name(certificate.get(), subject) == 1 &&
            X509_set_pubkey(certificate.get(), key) == 1);
    addExtension(certificate.get(), NID_subject_alt_name, alternativeNames(names));
    addExtension(certificate.get(), NID_basic_constraints, "critical,CA:FALSE");
    addExtension(certificate.get(), NID_ext_key_usage, "serverAuth");
    require(X509_sign(certificate.get(), key, EVP_sha256()) > 0);
    return certificate;
}

template<class Write>
std::string pemText(Write write) {
    const Pointer<BIO> text(BIO_new(BIO_s_mem()));
    require(text != nullptr && write(text.get()) == 1);
    char* data = nullptr;
    const long size = BIO_get_mem_data(text.get(), &data);
    return {data, static_cast<std::size_t>(size)};
}

Pointer<X509> readCertificate(const std::string& file) {
    const Pointer<FILE> opened(fopen(file.c_str(), "re"));
    return Pointer<X509>(opened == nullptr ? nullptr
                                           : PEM_read_X509(opened.get(), nullptr, nullptr, nullptr));
}

bool isFor(X509* certificate, const std::string& name) {
    return isNumeric(name) ? X509_check_ip_asc(certificate, name.c_str(), 0) == 1
                           : X509_check_host(certificate, name.c_str(), name.size(), 0, nullptr) == 1;
}

Pointer<EVP_PKEY> readKey(const std::string& file) {
    const std::string pem = readPrivateFile(file);
    const Pointer<BIO> text(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
    return Pointer<EVP_PKEY>(
        text == nullptr ? nullptr : PEM_read_bio_PrivateKey(text.get(), nullptr, nullptr, nullptr));
}

// The files are written one after the other, so after a crash in between they may not belong together.
bool isGood(const std::string& file, const std::string& keyFile, const std::vector<std::string>& names) {
    const Pointer<X509> certificate = readCertificate(file);
    const Pointer<EVP_PKEY> key = readKey(keyFile);
    if (certificate == nullptr || key == nullptr || X509_check_private_key(certificate.get(), key.get()) != 1)
        return false;
    // With 32 bits the library's std::time_t is shorter than ours, so no function is used that takes one.
    int days = 0;
    int seconds = 0;
    bool good = ASN1_TIME_diff(&days, &seconds, nullptr, X509_get0_notAfter(certificate.get())) == 1 &&
                days >= leastDaysLeft;
    for (const std::string& name : names)
        good = good && isFor(certificate.get(), name);
    return good;
}

} // namespace

void makeOwnCertificate(const std::string& certificateFile, const std::string& keyFile,
                        const std::vector<std::string>& names) {
    if (isGood(certificateFile, keyFile, names))
        return;
    const Pointer<EVP_PKEY> key(EVP_EC_gen("P-256"));
    require(key != nullptr);
    const Pointer<X509> certificate = signedCertificate(key.get(), names);
    writePrivateFile(keyFile, pemText([&](BIO* text) {
                         return PEM_write_bio_PrivateKey(text, key.get(), nullptr, nullptr, 0, nullptr,
                                                         nullptr);
                     }));
    writePrivateFile(certificateFile,
                     pemText([&](BIO* text) { return PEM_write_bio_X509(text, certificate.get()); }));
}

std::string certificateFingerprint(const std::string& certificateFile) {
    const Pointer<X509> certificate = readCertificate(certificateFile);
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned size = 0;
    if (certificate == nullptr || X509_digest(certificate.get(), EVP_sha256(), digest.data(), &size) != 1)
        throw std::runtime_error("the certificate " + certificateFile + " can't be read");
    std::string text;
    for (unsigned at = 0; at < size; ++at) {
        std::array<char, 4> part{};
        std::snprintf(part.data(), part.size(), "%s%02X", at == 0 ? "" : ":", digest[at]);
        text += part.data();
    }
    return text;
}

} // namespace panel
