#include "appliance/bug_report/secret_hider.h"

#include "appliance/settings/known_parameters.h"
#include "appliance/settings/secrets.h"

#include <libcommon/network.h>
#include <libcommon/parameter_lines.h>

#include <algorithm>
#include <cctype>
#include <glib.h>
#include <nlohmann/json.hpp>

namespace bug_report {
namespace {

using libcommon::ParameterLine;

constexpr std::size_t shortSecret = 3; // characters; so few are found in many words

// With every byte that is special in a URL as "%41".
std::string inUrl(const std::string& text) {
    gchar* escaped = g_uri_escape_string(text.c_str(), nullptr, FALSE);
    std::string result = escaped;
    g_free(escaped);
    return result;
}

std::string outOfUrl(const std::string& text) {
    gchar* plain = g_uri_unescape_string(text.c_str(), nullptr);
    std::string result = plain == nullptr ? text : plain; // null: it is no part of a URL
    g_free(plain);
    return result;
}

std::string inBase64(const std::string& text) {
    return base64encode(text.data(), text.size());
}

std::string inJson(const std::string& text) {
    const std::string quoted =
        nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    return quoted.substr(1, quoted.size() - 2);
}

// Name and password of a URL, as they are in it.
struct LogIn {
    std::string name;
    std::string password;
};

LogIn logInOf(const std::string& url) {
    const std::size_t scheme = url.find("://");
    if (scheme == std::string::npos)
        return {};
    const std::string authority = url.substr(scheme + 3, url.find_first_of("/?#", scheme + 3) - scheme - 3);
    const std::size_t at = authority.rfind('@');
    const std::size_t colon = authority.find(':');
    if (at == std::string::npos || colon == std::string::npos || colon > at)
        return {};
    return {authority.substr(0, colon), authority.substr(colon + 1, at - colon - 1)};
}

// The values of a URL's options that are secrets: what withoutSecrets() leaves out.
std::vector<std::string> secretOptions(const std::string& url) {
    std::vector<std::string> found;
    std::size_t begin = url.find_first_of("?&;#");
    while (begin != std::string::npos) {
        const std::size_t end = url.find_first_of("?&;#", begin + 1);
        const std::string part = url.substr(begin + 1, end == std::string::npos ? end : end - begin - 1);
        const std::size_t equals = part.find('=');
        if (equals != std::string::npos && withoutSecrets("x://h/?" + part) != "x://h/?" + part)
            found.push_back(part.substr(equals + 1));
        begin = end;
    }
    return found;
}

bool isWordCharacter(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
}

bool isWholeWord(std::string_view text, std::size_t begin, std::size_t length) {
    const bool before = begin > 0 && isWordCharacter(text[begin - 1]);
    const bool after = begin + length < text.size() && isWordCharacter(text[begin + length]);
    return !before && !after;
}

std::string replaced(std::string_view text, const std::string& secret) {
    std::string result;
    std::size_t from = 0;
    for (std::size_t at = 0; (at = text.find(secret, at)) != std::string_view::npos;) {
        if (secret.size() <= shortSecret && !isWholeWord(text, at, secret.size())) {
            ++at;
            continue;
        }
        result += text.substr(from, at - from);
        result += hiddenSecret;
        at += secret.size();
        from = at;
    }
    return result += text.substr(from);
}

} // namespace

SecretHider::SecretHider(std::string_view parameterText) {
    std::vector<std::string> names;
    std::vector<std::string> passwords;
    for (const ParameterLine& line : libcommon::parameterLines(parameterText)) {
        if (line.kind != ParameterLine::Kind::Key)
            continue;
        if (isSecretName(line.key))
            passwords.push_back(line.value);
        else if (sameName(line.key, "UserName"))
            names.push_back(line.value);
        const LogIn logIn = logInOf(line.value);
        names.push_back(outOfUrl(logIn.name));
        passwords.push_back(logIn.password);
        passwords.push_back(outOfUrl(logIn.password));
        for (const std::string& option : secretOptions(line.value)) {
            passwords.push_back(option);
            passwords.push_back(outOfUrl(option));
        }
    }
    for (const std::string& password : passwords) {
        add(password);
        for (const std::string& name : names)
            if (!password.empty())
                add(inBase64(name + ':' + password));
    }
    std::ranges::sort(secrets_, [](const std::string& a, const std::string& b) {
        return a.size() != b.size() ? a.size() > b.size() : a < b;
    });
    secrets_.erase(std::unique(secrets_.begin(), secrets_.end()), secrets_.end());
}

void SecretHider::add(const std::string& secret) {
    if (secret.empty())
        return;
    for (const std::string& form : {secret, inUrl(secret), inJson(secret)})
        secrets_.push_back(form);
}

std::string SecretHider::hidden(std::string_view text) const {
    std::string result = withoutSecrets(text);
    for (const std::string& secret : secrets_)
        result = replaced(result, secret);
    return result;
}

std::string SecretHider::withoutPasswords(std::string_view parameterText) {
    std::string text;
    for (const ParameterLine& line : libcommon::parameterLines(parameterText)) {
        if (line.kind == ParameterLine::Kind::Section)
            text += '[' + line.section + "]\n";
        else if (line.kind == ParameterLine::Kind::Key)
            text += line.key + " = " +
                    (isSecretName(line.key) && !line.value.empty() ? std::string(hiddenSecret)
                                                                   : withoutSecrets(line.value)) +
                    '\n';
        else if (line.kind == ParameterLine::Kind::Unreadable)
            text += "(line " + std::to_string(line.number) + " can't be read: " + line.reason + ")\n";
    }
    return text;
}

} // namespace bug_report
