#include "appliance/mqtt/link/tls_files.h"

#include <libcommon/text.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <sys/stat.h>

namespace mqtt {
namespace {

struct Free {
    void operator()(X509* certificate) const { X509_free(certificate); }
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
    void operator()(FILE* file) const { fclose(file); }
};
template<class Object>
using Pointer = std::unique_ptr<Object, Free>;

Pointer<FILE> opened(const std::string& path) {
    return Pointer<FILE>(fopen(path.c_str(), "re"));
}

std::string named(const char* what, const std::string& path) {
    return std::string(what) + ' ' + libcommon::printable(path);
}

// A FIFO or a device could make us wait, so only regular files are opened.
std::string fileMistake(const std::string& path) {
    struct stat state {};
    const bool found = stat(path.c_str(), &state) == 0;
    if (found && !S_ISREG(state.st_mode)) {
        return named("the file", path) + " can't be read: it is no file";
    }
    return found && opened(path) != nullptr
               ? ""
               : named("the file", path) + " can't be read: " + std::strerror(errno);
}

Pointer<X509> readCertificate(const std::string& path) {
    const Pointer<FILE> file = opened(path);
    Pointer<X509> certificate(file == nullptr ? nullptr
                                              : PEM_read_X509_AUX(file.get(), nullptr, nullptr, nullptr));
    ERR_clear_error();
    return certificate;
}

// A key with a passphrase can't be used: nobody is there to type it.
int noteQuestion(char* /*buffer*/, int /*size*/, int /*writes*/, void* asked) {
    *static_cast<bool*>(asked) = true;
    return -1;
}

std::string keyMistake(const std::string& path, Pointer<EVP_PKEY>& key) {
    const Pointer<FILE> file = opened(path);
    struct stat state {};
    if (file == nullptr || fstat(fileno(file.get()), &state) != 0) {
        return named("the file", path) + " can't be read: " + std::strerror(errno);
    }
    if ((state.st_mode & S_IRWXO) != 0) {
        return named("the key", path) +
               " is not used, because every user may use it: take these rights away with chmod o-rwx";
    }
    bool asked = false;
    key.reset(PEM_read_PrivateKey(file.get(), nullptr, noteQuestion, &asked));
    ERR_clear_error();
    if (key == nullptr) {
        return named("the key", path) +
               (asked ? " has a passphrase; save it without one" : " is no key in PEM");
    }
    return "";
}

std::string ownMistake(const TlsFiles& files) {
    if (files.certificate.empty() && files.key.empty()) {
        return "";
    }
    if (files.certificate.empty() || files.key.empty()) {
        return "CertFile and KeyFile are needed together";
    }
    for (const std::string& path : {files.certificate, files.key}) {
        if (const std::string mistake = fileMistake(path); !mistake.empty()) {
            return mistake;
        }
    }
    const Pointer<X509> certificate = readCertificate(files.certificate);
    if (certificate == nullptr) {
        return named("the file", files.certificate) + " has no certificate in PEM";
    }
    Pointer<EVP_PKEY> key;
    if (const std::string mistake = keyMistake(files.key, key); !mistake.empty()) {
        return mistake;
    }
    const bool belongs = X509_check_private_key(certificate.get(), key.get()) == 1;
    ERR_clear_error();
    return belongs ? ""
                   : named("the key", files.key) + " does not belong to " +
                         named("the certificate", files.certificate);
}

std::string dateOf(const ASN1_TIME* time) {
    std::tm parts{};
    std::array<char, 16> text{};
    if (ASN1_TIME_to_tm(time, &parts) != 1 || std::strftime(text.data(), text.size(), "%F", &parts) == 0) {
        return "an unknown day";
    }
    return text.data();
}

} // namespace

std::string tlsFilesMistake(const TlsFiles& files) {
    if (!files.authorities.empty()) {
        if (const std::string mistake = fileMistake(files.authorities); !mistake.empty()) {
            return mistake;
        }
        if (readCertificate(files.authorities) == nullptr) {
            return named("the file", files.authorities) + " has no certificate in PEM";
        }
    }
    return ownMistake(files);
}

std::string validityMistake(const std::string& certificateFile) {
    const Pointer<X509> certificate = readCertificate(certificateFile);
    if (certificate == nullptr) {
        return "";
    }
    const ASN1_TIME* begin = X509_get0_notBefore(certificate.get());
    const ASN1_TIME* end = X509_get0_notAfter(certificate.get());
    if (X509_cmp_current_time(end) < 0) {
        return "it has expired on " + dateOf(end);
    }
    return X509_cmp_current_time(begin) > 0 ? "it is valid from " + dateOf(begin) + " on" : "";
}

} // namespace mqtt
