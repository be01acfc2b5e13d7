#include "appliance/panel/access/accounts.h"

#include "appliance/operating/refused.h"
#include "appliance/panel/access/panel_files.h"
#include "appliance/panel/access/private_file.h"

#include <algorithm>
#include <sstream>

namespace panel {
namespace {

constexpr std::size_t longestName = 32;

void writeAccounts(const std::vector<Account>& accounts) {
    std::string text = "# Accounts of the panel, written by decoderctl panel-password: name, role, hash\n";
    for (const Account& account : accounts)
        text += account.name + ' ' + std::string(roleName(account.role)) + ' ' + account.hash + '\n';
    writePrivateFile(accountsFile(), text);
}

} // namespace

Role roleOf(std::string_view word) {
    for (const Role role : {Role::Viewer, Role::Operator, Role::Admin}) {
        if (word == roleName(role))
            return role;
    }
    return Role::None;
}

bool isAccountName(std::string_view name) {
    constexpr std::string_view characters =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_.@";
    return !name.empty() && name.size() <= longestName &&
           name.find_first_not_of(characters) == std::string_view::npos;
}

std::vector<Account> readAccounts() {
    std::vector<Account> accounts;
    std::istringstream lines(readPrivateFile(accountsFile()));
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        Account account;
        std::string role;
        words >> account.name >> role >> account.hash;
        account.role = roleOf(role);
        if (isAccountName(account.name) && account.role != Role::None && !account.hash.empty())
            accounts.push_back(std::move(account));
    }
    return accounts;
}

void writeAccount(const Account& account) {
    if (!isAccountName(account.name))
        throw Refused("a name has 1 to 32 letters, digits or -_.@");
    const PrivateFileLock lock(accountsFile());
    std::vector<Account> accounts = readAccounts();
    const auto same = std::find_if(accounts.begin(), accounts.end(),
                                   [&account](const Account& known) { return known.name == account.name; });
    if (same == accounts.end())
        accounts.push_back(account);
    else
        *same = account;
    writeAccounts(accounts);
}

void removeAccount(std::string_view name) {
    const PrivateFileLock lock(accountsFile());
    std::vector<Account> accounts = readAccounts();
    if (std::erase_if(accounts, [name](const Account& known) { return known.name == name; }) == 0)
        throw Refused("there is no account \"" + std::string(name) + '"');
    writeAccounts(accounts);
}

} // namespace panel
