// The encoder's TLS side: a context with a certificate of its own or one from files.
#pragma once

#include <memory>
#include <string>

struct ssl_ctx_st;

struct TlsContextDeleter {
    void operator()(ssl_ctx_st* context) const;
};
using TlsContext = std::unique_ptr<ssl_ctx_st, TlsContextDeleter>;

// A context with the certificate and key of two PEM files; with two empty names a self-signed certificate for
// `address` and "localhost" is made, good for a year. Null after a mistake, with the reason in `error`.
TlsContext makeTlsContext(const std::string& certificateFile, const std::string& keyFile,
                          const std::string& address, std::string& error);
