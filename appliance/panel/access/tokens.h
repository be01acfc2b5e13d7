// The tokens of programs: a file with one line "NAME ROLE EXPIRY HASH" for each. The token itself is in no file. Any
// thread.
#pragma once

#include "appliance/panel/web/request.h"
#include "appliance/panel/web/router.h"

#include <ctime>
#include <string>
#include <string_view>
#include <vector>

namespace panel {

struct Token {
    std::string name;
    Role role = Role::None; // or a purpose
    Purpose purpose = Purpose::None;
    std::time_t expiry = 0; // 0: never
    std::string hash;       // of the token
};

// Its role or purpose in a word: "viewer", "alarm".
std::string_view tokenRole(const Token& token);

// Sets role or purpose from a word; false: there is no such word.
bool setTokenRole(Token& token, std::string_view word);

// Lines that can't be read are left out. Throws as readPrivateFile().
std::vector<Token> readTokens();

// These two change the file under its lock (PrivateFileLock), so that changes at once all stay.
//
// Makes a token and returns its text; `token.hash` is set here. Throws Refused if the name is wrong or taken.
std::string addToken(Token token);

// Throws Refused if there is none of that name.
void removeToken(std::string_view name);

// The token with this text that has not expired at that time, or null.
const Token* findToken(const std::vector<Token>& tokens, std::string_view text, std::time_t now);

} // namespace panel
