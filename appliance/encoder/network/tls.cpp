#include "appliance/encoder/network/tls.h"

#include <array>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/rand.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

namespace {

using Key = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;
using Certificate = std::unique_ptr<X509, decltype(&X509_free)>;

constexpr long aDay = 24L * 3600;

std::string lastError() {
    std::array<char, 256> text{};
    ERR_error_string_n(ERR_get_error(), text.data(), text.size());
    ERR_clear_error();
    return text.data();
}

bool addExtension(X509* certificate, int id, const std::string& value) {
    X509V3_CTX context;
    X509V3_set_ctx_nodb(&context);
    X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
    X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, id, value.c_str());
    const bool added = extension != nullptr && X509_add_ext(certificate, extension, -1) == 1;
    X509_EXTENSION_free(extension);
    return added;
}

Certificate makeCertificate(EVP_PKEY* key, const std::string& address) {
    Certificate certificate(X509_new(), X509_free);
    std::uint64_t serial = 0;
    if (!certificate || RAND_bytes(reinterpret_cast<unsigned char*>(&serial), sizeof serial) != 1)
        return Certificate(nullptr, X509_free);
    X509* x509 = certificate.get();
    X509_set_version(x509, 2);
    ASN1_INTEGER_set_uint64(X509_get_serialNumber(x509), serial >> 1); // a serial number is positive
    X509_gmtime_adj(X509_getm_notBefore(x509), -aDay);                 // small devices' clocks can be behind
    X509_gmtime_adj(X509_getm_notAfter(x509), 365 * aDay);
    X509_NAME* name = X509_get_subject_name(x509);
    const auto* common = reinterpret_cast<const unsigned char*>("video-encoder");
    const bool done = X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, common, -1, -1, 0) == 1 &&
                      X509_set_issuer_name(x509, name) == 1 && X509_set_pubkey(x509, key) == 1 &&
                      addExtension(x509, NID_basic_constraints, "critical,CA:TRUE") &&
                      addExtension(x509, NID_subject_alt_name, "DNS:localhost,IP:" + address) &&
                      X509_sign(x509, key, EVP_sha256()) > 0;
    return done ? std::move(certificate) : Certificate(nullptr, X509_free);
}

bool useOwnCertificate(SSL_CTX* context, const std::string& address, std::string& error) {
    const Key key(EVP_EC_gen("P-256"), EVP_PKEY_free);
    const Certificate certificate =
        key ? makeCertificate(key.get(), address) : Certificate(nullptr, X509_free);
    if (!certificate || SSL_CTX_use_certificate(context, certificate.get()) != 1 ||
        SSL_CTX_use_PrivateKey(context, key.get()) != 1) {
        error = "cannot make a certificate: " + lastError();
        return false;
    }
    return true;
}

bool useFiles(SSL_CTX* context, const std::string& certificateFile, const std::string& keyFile,
              std::string& error) {
    if (SSL_CTX_use_certificate_chain_file(context, certificateFile.c_str()) != 1) {
        error = "cannot use the certificate file '" + certificateFile + "': " + lastError();
        return false;
    }
    if (SSL_CTX_use_PrivateKey_file(context, keyFile.c_str(), SSL_FILETYPE_PEM) != 1) {
        error = "cannot use the key file '" + keyFile + "': " + lastError();
        return false;
    }
    return true;
}

} // namespace

void TlsContextDeleter::operator()(ssl_ctx_st* context) const {
    SSL_CTX_free(context);
}

TlsContext makeTlsContext(const std::string& certificateFile, const std::string& keyFile,
                          const std::string& address, std::string& error) {
    TlsContext context(SSL_CTX_new(TLS_server_method()));
    if (!context) {
        error = "cannot start TLS: " + lastError();
        return nullptr;
    }
    SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION);
    const bool ready = certificateFile.empty() ? useOwnCertificate(context.get(), address, error)
                                               : useFiles(context.get(), certificateFile, keyFile, error);
    if (!ready)
        return nullptr;
    return context;
}
