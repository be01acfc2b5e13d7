// The accounts of people: a file with one line "NAME ROLE HASH" for each. Any thread.
#pragma once

#include "appliance/panel/web/request.h"

#include <string>
#include <string_view>
#include <vector>

namespace panel {

struct Account {
    std::string name;
    Role role = Role::None;
    std::string hash; // of the password
};

// "viewer", "operator" or "admin"; Role::None for other words.
Role roleOf(std::string_view word);

// Letters, digits and "-_.@", at most 32 of them.
bool isAccountName(std::string_view name);

// Lines that can't be read are left out. Throws as readPrivateFile().
std::vector<Account> readAccounts();

// These two change the file under its lock (PrivateFileLock), so that changes at once all stay.
//
// Adds the account, or gives it the new password and role. Throws Refused and std::system_error.
void writeAccount(const Account& account);

// Removes it. Throws Refused if there is none of that name.
void removeAccount(std::string_view name);

} // namespace panel
