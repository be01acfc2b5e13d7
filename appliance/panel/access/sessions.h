// Who is logged in. Sessions are in memory only: they end when the panel restarts. Main loop's thread only.
#pragma once

#include "appliance/panel/web/request.h"

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace panel {

struct SessionLimits {
    std::int64_t idle = 3600;     // seconds without a request
    std::int64_t longest = 43200; // seconds from the log-in
    std::size_t most = 1000;      // sessions; the one that was idle longest ends for a new one
    std::size_t mostOfAccount = 50;
};

struct Session {
    std::string key; // hash of the cookie's value: names the session inside of the program
    std::string account;
    std::string passwordHash; // of the account at the log-in; "" after a one-time link
    Role role = Role::None;
    std::string csrf;
    std::int64_t begun = 0; // seconds
    std::int64_t used = 0;
};

class Sessions {
public:
    explicit Sessions(const SessionLimits& limits) : limits_(limits) {}

    // Begins a session and returns the cookie's value. `session` has account, hash and role; `now` in seconds, any clock
    // that never jumps. Keys of sessions that end for it are added to `ended`.
    std::string begin(Session session, std::int64_t now, std::vector<std::string>& ended);

    // The session of a cookie's value, or null; counts as use.
    const Session* find(std::string_view cookie, std::int64_t now);

    // The session of a key, or null; no use.
    const Session* findByKey(std::string_view key) const;

    // Ends the session of this key.
    void end(std::string_view key);

    // Ends what is too old, and where `keep` says no. Returns the keys.
    template<class Keep>
    std::vector<std::string> endOld(std::int64_t now, Keep keep) {
        std::vector<std::string> ended;
        std::erase_if(sessions_, [&](const auto& entry) {
            const bool over = isOver(entry.second, now) || !keep(entry.second);
            if (over)
                ended.push_back(entry.first);
            return over;
        });
        return ended;
    }

    // Seconds until it ends if it is not used any more.
    std::int64_t secondsLeft(const Session& session, std::int64_t now) const;
    std::size_t count() const { return sessions_.size(); }

private:
    bool isOver(const Session& session, std::int64_t now) const { return secondsLeft(session, now) <= 0; }
    void makeRoom(std::string_view account, std::vector<std::string>& ended);

    SessionLimits limits_;
    std::map<std::string, Session, std::less<>> sessions_; // by key
};

} // namespace panel
