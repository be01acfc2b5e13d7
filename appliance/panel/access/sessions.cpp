#include "appliance/panel/access/sessions.h"

#include "appliance/panel/access/secrets.h"

#include <algorithm>

namespace panel {
namespace {

// Ends the session that was idle longest of those for which `counts` is true, if there are `most` of them.
template<class Map, class Counts>
void endIdlest(Map& sessions, std::size_t most, Counts counts, std::vector<std::string>& ended) {
    auto idlest = sessions.end();
    std::size_t count = 0;
    for (auto entry = sessions.begin(); entry != sessions.end(); ++entry) {
        if (!counts(entry->second))
            continue;
        ++count;
        if (idlest == sessions.end() || entry->second.used < idlest->second.used)
            idlest = entry;
    }
    if (count < most || idlest == sessions.end())
        return;
    ended.push_back(idlest->first);
    sessions.erase(idlest);
}

} // namespace

void Sessions::makeRoom(std::string_view account, std::vector<std::string>& ended) {
    endIdlest(
        sessions_, limits_.mostOfAccount,
        [account](const Session& session) { return session.account == account; }, ended);
    endIdlest(
        sessions_, limits_.most, [](const Session&) { return true; }, ended);
}

std::string Sessions::begin(Session session, std::int64_t now, std::vector<std::string>& ended) {
    makeRoom(session.account, ended);
    std::string cookie = randomSecret();
    session.key = sha256Text(cookie);
    session.csrf = randomSecret();
    session.begun = session.used = now;
    sessions_[session.key] = session;
    return cookie;
}

const Session* Sessions::find(std::string_view cookie, std::int64_t now) {
    const auto found = sessions_.find(sha256Text(cookie));
    if (found == sessions_.end() || isOver(found->second, now))
        return nullptr;
    found->second.used = now;
    return &found->second;
}

const Session* Sessions::findByKey(std::string_view key) const {
    const auto found = sessions_.find(key);
    return found == sessions_.end() ? nullptr : &found->second;
}

void Sessions::end(std::string_view key) {
    if (const auto found = sessions_.find(key); found != sessions_.end())
        sessions_.erase(found);
}

std::int64_t Sessions::secondsLeft(const Session& session, std::int64_t now) const {
    return std::min(session.used + limits_.idle, session.begun + limits_.longest) - now;
}

} // namespace panel
