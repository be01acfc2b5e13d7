#include "appliance/ctl/panel_commands.h"

#include "appliance/ctl/password_prompt.h"
#include "appliance/operating/refused.h"
#include "appliance/panel/access/accounts.h"
#include "appliance/panel/access/one_time_link.h"
#include "appliance/panel/access/password_hash.h"
#include "appliance/panel/access/tokens.h"
#include "appliance/reporting/json_text.h"

#include <array>
#include <ctime>
#include <nlohmann/json.hpp>
#include <ostream>
#include <unistd.h>

namespace {

constexpr std::size_t shortestPassword = 8;
constexpr std::size_t longestPassword = 512;
constexpr std::time_t day = 86400;

std::string newPassword() {
    const std::string password = readPassword(false);
    if (password.size() < shortestPassword || password.size() > longestPassword)
        throw Refused("a password has at least 8 characters");
    if (isatty(STDIN_FILENO) != 0 && readPassword(false) != password)
        throw Refused("the two passwords are different");
    return password;
}

std::string dayText(std::time_t time) {
    std::tm parts{};
    std::array<char, 32> text{};
    localtime_r(&time, &parts);
    return {text.data(), std::strftime(text.data(), text.size(), "%F %R", &parts)};
}

std::string expiryText(const panel::Token& token) {
    if (token.expiry == 0)
        return "does not expire";
    return (token.expiry <= std::time(nullptr) ? "expired " : "until ") + dayText(token.expiry);
}

nlohmann::json tokenJson(const panel::Token& token) {
    return {{"name", token.name},
            {"role", panel::tokenRole(token)},
            {"expires", token.expiry == 0 ? nlohmann::json() : nlohmann::json(token.expiry)}};
}

} // namespace

void showPanelLink(const Request& request, std::ostream& out) {
    const std::string link = panel::makeOneTimeLink();
    if (request.json)
        out << jsonLine({{"link", link}, {"minutes", panel::linkMinutes}}) << '\n';
    else
        out << link << '\n';
}

std::string setPanelPassword(const Request& request) {
    panel::Account account;
    account.name = request.name.empty() ? "admin" : request.name;
    if (request.remove) {
        panel::removeAccount(account.name);
        return "The account " + account.name + " is removed.";
    }
    if (!panel::isAccountName(account.name))
        throw Refused("a name has 1 to 32 letters, digits or -_.@");
    account.role = panel::roleOf(request.role.empty() ? "admin" : request.role);
    if (account.role == panel::Role::None)
        throw Refused("an account has the role viewer, operator or admin");
    account.hash = panel::passwordHash(newPassword());
    panel::writeAccount(account);
    return "The account " + account.name + " has the role " + std::string(panel::roleName(account.role)) +
           ". Its log-ins so far are over.";
}

void makePanelToken(const Request& request, std::ostream& out) {
    panel::Token token;
    token.name = request.name;
    if (!panel::setTokenRole(token, request.role))
        throw Refused("a token has the role viewer, operator, admin, alarm or metrics");
    token.expiry = request.days == 0 ? 0 : std::time(nullptr) + request.days * day;
    const std::string text = panel::addToken(token);
    if (request.json)
        out << jsonLine({{"token", text}, {"name", token.name}, {"role", request.role}}) << '\n';
    else
        out << text << '\n';
}

void showPanelTokens(const Request& request, std::ostream& out) {
    if (request.remove) {
        panel::removeToken(request.name);
        const std::string sentence = "The token " + request.name + " is removed.";
        out << (request.json ? jsonLine({{"done", sentence}}) : sentence) << '\n';
        return;
    }
    nlohmann::json all = nlohmann::json::array();
    for (const panel::Token& token : panel::readTokens()) {
        all.push_back(tokenJson(token));
        if (!request.json)
            out << token.name << "  " << panel::tokenRole(token) << "  " << expiryText(token) << '\n';
    }
    if (request.json)
        out << jsonLines(all);
}
