// TLS for the HTTPS port: with a certificate from files, or with one that is made at start.
#pragma once

#include <memory>
#include <string>

struct ssl_ctx_st;

struct TlsContextDeleter {
    void operator()(ssl_ctx_st* context) const;
};
using TlsContext = std::unique_ptr<ssl_ctx_st, TlsContextDeleter>;

// A context with the certificate and key from two PEM files. If both names are empty, it gets a new self-signed
// certificate for `address` and "localhost" that is valid for a year. Null on failure, with the reason in `error`.
TlsContext makeTlsContext(const std::string& certificateFile, const std::string& keyFile,
                          const std::string& address, std::string& error);
