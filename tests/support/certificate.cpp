#include "tests/support/certificate.h"

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <stdexcept>

namespace scripted {

struct Certificate::Parts {
    std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key{nullptr, &EVP_PKEY_free};
    std::unique_ptr<X509, decltype(&X509_free)> certificate{nullptr, &X509_free};
    std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context{nullptr, &SSL_CTX_free};
};

namespace {

void require(bool succeeded) {
    if (!succeeded)
        throw std::runtime_error("OpenSSL could not make a certificate");
}

void addExtension(X509* certificate, int kind, const std::string& value) {
    X509V3_CTX context;
    X509V3_set_ctx_nodb(&context);
    X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
    X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, kind, value.c_str());
    require(extension != nullptr);
    X509_add_ext(certificate, extension, -1);
    X509_EXTENSION_free(extension);
}

X509* selfSigned(EVP_PKEY* key, const std::string& names, long begin, long end) {
    X509* certificate = X509_new();
    require(certificate != nullptr && X509_set_version(certificate, X509_VERSION_3) == 1);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate), 1);
    X509_gmtime_adj(X509_getm_notBefore(certificate), begin);
    X509_gmtime_adj(X509_getm_notAfter(certificate), end);
    X509_NAME* name = X509_get_subject_name(certificate);
    const auto* text = reinterpret_cast<const unsigned char*>("test encoder");
    require(X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, text, -1, -1, 0) == 1 &&
            X509_set_issuer_name(certificate, name) == 1 && X509_set_pubkey(certificate, key) == 1);
    addExtension(certificate, NID_basic_constraints, "critical,CA:TRUE");
    addExtension(certificate, NID_subject_alt_name, names);
    require(X509_sign(certificate, key, EVP_sha256()) > 0);
    return certificate;
}

using Memory = std::unique_ptr<BIO, decltype(&BIO_free)>;

std::string contents(const Memory& memory) {
    char* text = nullptr;
    const long length = BIO_get_mem_data(memory.get(), &text);
    return {text, static_cast<std::size_t>(length)};
}

} // namespace

Certificate::Certificate(const std::string& names, long begin, long end) : parts_(std::make_unique<Parts>()) {
    parts_->key.reset(EVP_EC_gen("P-256"));
    require(parts_->key != nullptr);
    parts_->certificate.reset(selfSigned(parts_->key.get(), names, begin, end));
    parts_->context.reset(SSL_CTX_new(TLS_server_method()));
    require(parts_->context != nullptr &&
            SSL_CTX_use_certificate(parts_->context.get(), parts_->certificate.get()) == 1 &&
            SSL_CTX_use_PrivateKey(parts_->context.get(), parts_->key.get()) == 1);
}

Certificate::~Certificate() = default;

std::string Certificate::pem() const {
    const Memory memory(BIO_new(BIO_s_mem()), &BIO_free);
    require(PEM_write_bio_X509(memory.get(), parts_->certificate.get()) == 1);
    return contents(memory);
}

std::string Certificate::keyPem(const std::string& passphrase) const {
    const Memory memory(BIO_new(BIO_s_mem()), &BIO_free);
    const EVP_CIPHER* cipher = passphrase.empty() ? nullptr : EVP_aes_256_cbc();
    const auto* word = reinterpret_cast<const unsigned char*>(passphrase.data());
    require(PEM_write_bio_PrivateKey(memory.get(), parts_->key.get(), cipher,
                                     cipher == nullptr ? nullptr : word, static_cast<int>(passphrase.size()),
                                     nullptr, nullptr) == 1);
    return contents(memory);
}

ssl_ctx_st* Certificate::context() const {
    return parts_->context.get();
}

} // namespace scripted
