// A self-signed certificate for tests, made at run time, so that the source tree has no secrets and nothing
// that expires.
#pragma once

#include <memory>
#include <string>

struct ssl_ctx_st;

namespace scripted {

class Certificate {
public:
    // For a comma-separated list of names in OpenSSL's form: "IP:127.0.0.1,DNS:localhost". Valid from `begin` to `end`,
    // in seconds from now.
    explicit Certificate(const std::string& names = "IP:127.0.0.1,DNS:localhost", long begin = -86400,
                         long end = 86400);
    ~Certificate();
    Certificate(const Certificate&) = delete;
    Certificate& operator=(const Certificate&) = delete;

    // The certificate as PEM, for a client's CA file.
    std::string pem() const;

    // Its private key as PEM, for a server that is another program. With a passphrase it is encrypted.
    std::string keyPem(const std::string& passphrase = "") const;

    // The server's side; owned by the object.
    ssl_ctx_st* context() const;

private:
    struct Parts;
    std::unique_ptr<Parts> parts_;
};

} // namespace scripted
