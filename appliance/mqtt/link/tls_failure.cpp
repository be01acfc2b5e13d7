#include "appliance/mqtt/link/tls_failure.h"

#include "appliance/mqtt/link/tls_files.h"

#include <libcommon/text.h>

#include <array>
#include <string_view>

namespace mqtt {
namespace {

// What a line of the library contains, and what it means. The first row that fits counts.
struct Meaning {
    std::string_view part;
    const char* text;
    bool aboutOwn; // it is about the certificate of this decoder
};

constexpr std::array meanings{
    Meaning{"host name verification failed", "the broker's certificate is for another host", false},
    Meaning{"alert certificate required",
            "the broker asks for a certificate: set Mqtt.CertFile and Mqtt.KeyFile", false},
    Meaning{"alert handshake failure",
            "the broker refused the start of TLS; it may ask for a certificate (Mqtt.CertFile, Mqtt.KeyFile)",
            false},
    Meaning{"alert certificate expired", "the broker refused this decoder's certificate", true},
    Meaning{"alert unknown ca",
            "the broker refused this decoder's certificate, because it does not know who signed it", true},
    Meaning{"alert certificate revoked",
            "the broker refused this decoder's certificate, because it was revoked", true},
    Meaning{"alert bad certificate", "the broker refused this decoder's certificate", true},
    Meaning{"alert unsupported certificate", "the broker refused this decoder's certificate", true},
    Meaning{"alert certificate unknown", "the broker refused this decoder's certificate", true},
    Meaning{"alert decrypt error", "the broker refused this decoder's certificate", true},
    Meaning{"alert access denied", "the broker refused this decoder's certificate", true},
    Meaning{"unexpected eof", "the broker closed the connection; does it speak TLS on this port?", false},
    Meaning{"certificate verify failed",
            "the broker's certificate is not accepted: it has expired, or Mqtt.CAFile does not know who "
            "signed it",
            false},
    Meaning{"wrong version number", "the broker speaks no TLS on this port", false},
    Meaning{"packet length too long", "the broker speaks no TLS on this port", false},
    Meaning{"http request", "the broker speaks no TLS on this port", false},
    Meaning{"alert protocol version", "the broker and this decoder have no version of TLS in common", false},
    Meaning{"unsupported protocol", "the broker and this decoder have no version of TLS in common", false},
    Meaning{"no shared cipher", "the broker and this decoder have no cipher in common", false},
};

const Meaning* meaningOf(std::string_view line) {
    for (const Meaning& meaning : meanings) {
        if (line.find(meaning.part) != std::string_view::npos) {
            return &meaning;
        }
    }
    return nullptr;
}

// "OpenSSL Error[0]: error:0A000086:SSL routines::certificate verify failed" without what is before the words.
std::string_view wordsOf(std::string_view line) {
    const std::size_t colon = line.rfind(':');
    return colon == std::string_view::npos ? line : line.substr(colon + 1);
}

std::string validityOf(const std::string& certificateFile) {
    const std::string mistake = validityMistake(certificateFile);
    return mistake.empty() ? "" : "; " + mistake;
}

} // namespace

void TlsFailure::note(const std::string& line) {
    const bool about = line.find("OpenSSL Error") != std::string::npos || meaningOf(line) != nullptr;
    // A host name that does not fit is followed by the general "certificate verify failed".
    if (about && (line_.empty() || meaningOf(line_) == nullptr)) {
        line_ = line;
    }
}

std::string TlsFailure::text(const std::string& certificateFile) const {
    if (line_.empty()) {
        return "";
    }
    const Meaning* meaning = meaningOf(line_);
    if (meaning == nullptr) {
        return "TLS failed: " + libcommon::printable(wordsOf(line_));
    }
    return std::string("TLS failed: ") + meaning->text +
           (meaning->aboutOwn ? validityOf(certificateFile) : "");
}

std::string certificateHint(const std::string& certificateFile) {
    return certificateFile.empty()
               ? "; it may ask for a certificate (Mqtt.CertFile, Mqtt.KeyFile)"
               : "; it may have refused this decoder's certificate" + validityOf(certificateFile);
}

} // namespace mqtt
