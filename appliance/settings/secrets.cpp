#include "appliance/settings/secrets.h"

#include <array>
#include <cctype>
#include <nlohmann/json.hpp>

namespace {

// Ends of the names of parameters, and parts of the names of options in URLs.
constexpr std::array secretWords{"password", "passphrase", "passwd", "pwd", "secret", "token"};

std::string lower(std::string_view text) {
    std::string result(text);
    for (char& c : result)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return result;
}

bool isEnd(char c) {
    return std::isspace(static_cast<unsigned char>(c)) != 0 || c == '"' || c == '<' || c == '>';
}

bool namesSecretOption(std::string_view name) {
    const std::string option = lower(name);
    for (const char* word : secretWords) {
        if (option.find(word) != std::string::npos)
            return true;
    }
    return option == "pass" || option == "psw" || option == "auth" || option == "key";
}

// user:PASSWORD@: up to the last @ before the path, because a password may have an @ of its own.
std::string withoutPassword(std::string_view authority) {
    const std::size_t at = authority.rfind('@');
    const std::size_t colon = authority.find(':');
    if (at == std::string_view::npos || colon == std::string_view::npos || colon > at)
        return std::string(authority);
    return std::string(authority.substr(0, colon + 1)) + std::string(hiddenSecret) +
           std::string(authority.substr(at));
}

// The part of a URL from its path on.
std::string withoutOptions(std::string_view rest) {
    std::string result;
    std::size_t begin = 0;
    while (begin < rest.size()) {
        const std::size_t end = rest.find_first_of("?&;#", begin);
        const std::string_view part =
            rest.substr(begin, end == std::string_view::npos ? std::string_view::npos : end - begin);
        const std::size_t equals = part.find('=');
        if (equals != std::string_view::npos && namesSecretOption(part.substr(0, equals)))
            result += std::string(part.substr(0, equals + 1)) + std::string(hiddenSecret);
        else
            result += part;
        if (end == std::string_view::npos)
            break;
        result += rest[end];
        begin = end + 1;
    }
    return result;
}

std::string hiddenUrl(std::string_view url) {
    const std::size_t path = url.find_first_of("/?#");
    return path == std::string_view::npos
               ? withoutPassword(url)
               : withoutPassword(url.substr(0, path)) + withoutOptions(url.substr(path));
}

} // namespace

bool isSecretName(std::string_view name) {
    const std::string text = lower(name);
    for (const char* word : secretWords) {
        if (text.ends_with(word))
            return true;
    }
    return false;
}

std::string withoutSecrets(std::string_view text) {
    std::string result;
    for (;;) {
        const std::size_t scheme = text.find("://");
        if (scheme == std::string_view::npos)
            break;
        result += text.substr(0, scheme + 3);
        text.remove_prefix(scheme + 3);
        std::size_t length = 0;
        while (length < text.size() && !isEnd(text[length]))
            ++length;
        result += hiddenUrl(text.substr(0, length));
        text.remove_prefix(length);
    }
    return result += text;
}

void hideSecrets(nlohmann::json& value) {
    if (value.is_string()) {
        auto& text = value.get_ref<std::string&>();
        if (text.find("://") != std::string::npos)
            text = withoutSecrets(text);
    } else if (value.is_array()) {
        for (nlohmann::json& part : value)
            hideSecrets(part);
    } else if (value.is_object()) {
        for (auto& [key, part] : value.items()) {
            if (part.is_string() && isSecretName(key) && !part.get_ref<std::string&>().empty())
                part = hiddenSecret;
            else
                hideSecrets(part);
        }
    }
}
