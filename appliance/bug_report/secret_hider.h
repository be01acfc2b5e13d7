// Takes every password of the decoder out of a text.
//
// Names alone don't suffice: a password may be in a line of the log, in a file name, or in the answer of an encoder. So each
// text of a bug report is searched for the passwords that the configuration has, in the forms in which programs write them.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace bug_report {

// One thread.
class SecretHider {
public:
    // The passwords of a parameter file's text: values whose names say so, and those in URLs.
    explicit SecretHider(std::string_view parameterText);

    // The text with "***" in place of each: as it is, as in URLs, as in JSON, and as in the Base64 of a log-in with the names
    // that the configuration has. A password of one to three characters is hidden where it is a whole word. Passwords in
    // URLs of other places are hidden, too.
    std::string hidden(std::string_view text) const;

    // The text of a parameter file without the values of its passwords. Comments are left out: they may have old ones.
    static std::string withoutPasswords(std::string_view parameterText);

private:
    void add(const std::string& secret);

    std::vector<std::string> secrets_; // the longest first
};

} // namespace bug_report
