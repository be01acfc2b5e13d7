#include "appliance/panel/access/tokens.h"

#include "appliance/operating/refused.h"
#include "appliance/panel/access/accounts.h"
#include "appliance/panel/access/panel_files.h"
#include "appliance/panel/access/private_file.h"
#include "appliance/panel/access/secrets.h"

#include <algorithm>
#include <sstream>

namespace panel {
namespace {

void writeTokens(const std::vector<Token>& tokens) {
    std::string text =
        "# Tokens of the panel, written by decoderctl panel-token: name, role, expiry (0: never), hash\n";
    for (const Token& token : tokens) {
        text += token.name + ' ' + std::string(tokenRole(token)) + ' ' + std::to_string(token.expiry) + ' ' +
                token.hash + '\n';
    }
    writePrivateFile(tokensFile(), text);
}

} // namespace

std::string_view tokenRole(const Token& token) {
    switch (token.purpose) {
    case Purpose::None:
        return roleName(token.role);
    case Purpose::Alarm:
        return "alarm";
    case Purpose::Metrics:
        return "metrics";
    }
    return "none";
}

bool setTokenRole(Token& token, std::string_view word) {
    token.role = roleOf(word);
    token.purpose = word == "alarm" ? Purpose::Alarm : word == "metrics" ? Purpose::Metrics : Purpose::None;
    return token.role != Role::None || token.purpose != Purpose::None;
}

std::vector<Token> readTokens() {
    std::vector<Token> tokens;
    std::istringstream lines(readPrivateFile(tokensFile()));
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        Token token;
        std::string role;
        if (words >> token.name >> role >> token.expiry >> token.hash && isAccountName(token.name) &&
            setTokenRole(token, role))
            tokens.push_back(std::move(token));
    }
    return tokens;
}

std::string addToken(Token token) {
    if (!isAccountName(token.name))
        throw Refused("a name has 1 to 32 letters, digits or -_.@");
    const PrivateFileLock lock(tokensFile());
    std::vector<Token> tokens = readTokens();
    if (std::any_of(tokens.begin(), tokens.end(),
                    [&](const Token& known) { return known.name == token.name; }))
        throw Refused("there is a token \"" + token.name + "\" already; remove it first");
    std::string text = randomSecret();
    token.hash = sha256Text(text);
    tokens.push_back(std::move(token));
    writeTokens(tokens);
    return text;
}

void removeToken(std::string_view name) {
    const PrivateFileLock lock(tokensFile());
    std::vector<Token> tokens = readTokens();
    if (std::erase_if(tokens, [name](const Token& known) { return known.name == name; }) == 0)
        throw Refused("there is no token \"" + std::string(name) + '"');
    writeTokens(tokens);
}

const Token* findToken(const std::vector<Token>& tokens, std::string_view text, std::time_t now) {
    const std::string hash = sha256Text(text);
    const auto found = std::find_if(tokens.begin(), tokens.end(),
                                    [&](const Token& token) { return sameSecret(token.hash, hash); });
    if (found == tokens.end() || (found->expiry != 0 && found->expiry <= now))
        return nullptr;
    return &*found;
}

} // namespace panel
