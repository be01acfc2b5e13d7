#include "appliance/panel/access/access.h"

#include "appliance/panel/access/accounts.h"
#include "appliance/panel/access/cookies.h"
#include "appliance/panel/access/one_time_link.h"
#include "appliance/panel/access/panel_files.h"
#include "appliance/panel/access/password_hash.h"
#include "appliance/panel/access/tokens.h"
#include "appliance/panel/access/try_limit.h"
#include "appliance/panel/web/source_handle.h"
#include "appliance/panel/web/worker.h"

#include <libcommon/log.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <glib-unix.h>
#include <nlohmann/json.hpp>
#include <sys/inotify.h>
#include <unistd.h>

namespace panel {
namespace {

constexpr unsigned sweepSeconds = 1;
constexpr unsigned secondsBetweenLooks = 2; // at the files, where the kernel does not tell of changes
constexpr std::size_t longestPassword = 512;
constexpr std::size_t mostLogIns = 32; // that wait for their hash

std::int64_t now() {
    return g_get_monotonic_time() / 1000000;
}

std::string isoTimeIn(std::int64_t seconds) {
    const std::time_t when = std::time(nullptr) + seconds;
    std::tm parts{};
    gmtime_r(&when, &parts);
    std::string text(32, '\0');
    text.resize(std::strftime(text.data(), text.size(), "%FT%TZ", &parts));
    return text;
}

struct LogIn {
    std::string user;
    std::string password;
    bool form = false; // answered with a page instead of JSON
    std::string next;  // the page
};

std::string textOf(const nlohmann::json& object, const char* key) {
    const auto found = object.find(key);
    return found != object.end() && found->is_string() ? found->get<std::string>() : std::string();
}

std::string fieldOf(const Texts& fields, std::string_view name) {
    const auto found = fields.find(name);
    return found == fields.end() ? std::string() : found->second;
}

// From the form or the JSON object of the body.
LogIn readLogIn(const Request& request) {
    if (request.type != "application/json") {
        return {fieldOf(request.form, "user"), fieldOf(request.form, "password"), true,
                fieldOf(request.form, "next") == "/basic" ? "/basic" : "/"};
    }
    const nlohmann::json body = nlohmann::json::parse(request.body, nullptr, false);
    return body.is_object() ? LogIn{textOf(body, "user"), textOf(body, "password"), false, ""} : LogIn{};
}

Response redirect(const std::string& path) {
    Response response;
    response.status = 303;
    response.type = "text/plain; charset=utf-8";
    response.headers.emplace_back("Location", path);
    return response;
}

// A page without JavaScript goes back to its form, which says why.
Response refusedLogIn(const LogIn& tried, int status, const std::string& sentence, std::int64_t wait) {
    Response response = tried.form ? redirect(wait > 0 ? "/basic?login=wait" : "/basic?login=wrong")
                                   : errorResponse(status, sentence);
    if (wait > 0)
        response.headers.emplace_back("Retry-After", std::to_string(wait));
    return response;
}

// Files as they were read last.
struct Known {
    std::vector<Account> accounts;
    std::vector<Token> tokens;
};

Known readKnown() {
    Known known;
    try {
        known.accounts = readAccounts();
        known.tokens = readTokens();
    } catch (const std::exception& error) {
        logmsg(3, "panel: %s", error.what());
    }
    return known;
}

} // namespace

struct Access::State {
    State(const AccessOptions& options, std::function<void(std::string_view)> ended)
        : sessions(options.sessions), tries(options.triesAMinute), sessionEnded(std::move(ended)),
          known(readKnown()) {}

    Sessions sessions;
    TryLimit tries;
    std::function<void(std::string_view)> sessionEnded;
    Known known;
    std::string cookie;
    bool secure = false;
    bool reloads = false; // the files are being read
    bool changed = false; // and have changed once more
    int watch = -1;       // inotify
    SourceHandle watching;
    SourceHandle clock; // while there are sessions
    Worker worker{mostLogIns};

    ~State() {
        watching.reset();
        if (watch >= 0)
            close(watch);
    }
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    static gboolean onChange(int descriptor, GIOCondition condition, gpointer self);
    void watchFiles();
    void lookNowAndThen();
    void reload();
    void sweep();
    bool mayStay(const Session& session) const;
    void tellEnded(const std::vector<std::string>& keys) const;
    const Session* sessionOf(std::string_view cookies);
    void endPresent(const Request& request);
    Response begin(const Request& request, Session session, Response response);
    nlohmann::json json(const Session* session) const;
    Visitor identifyToken(const std::string& text) const;

    void logIn(const Request& request, const Answer& answer);
    void logOut(const Request& request, const Answer& answer);
    void openLink(const Request& request, const Answer& answer);
};

// ---- The files -----------------------------------------------------------------------------------------------

void Access::State::watchFiles() {
    const std::string path = accountsFile();
    watch = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    if (watch < 0 || inotify_add_watch(watch, path.substr(0, path.rfind('/')).c_str(),
                                       IN_MOVED_TO | IN_CLOSE_WRITE | IN_DELETE) < 0)
        return lookNowAndThen();
    GSource* source = g_unix_fd_source_new(watch, G_IO_IN);
    g_source_set_callback(source, G_SOURCE_FUNC(onChange), this, nullptr);
    g_source_attach(source, g_main_context_get_thread_default());
    watching.reset(source);
}

// A user has few inotify instances (/proc/sys/fs/inotify/max_user_instances), and many decoders may have taken them.
void Access::State::lookNowAndThen() {
    logmsg(3, "panel: changes of accounts and tokens are seen after some seconds (inotify: errno=%d %s)",
           errno, std::strerror(errno));
    watching = every(secondsBetweenLooks * 1000, [this] { reload(); });
}

// Reads the files again after any change in their folder, which changes rarely.
gboolean Access::State::onChange(int descriptor, GIOCondition /*condition*/, gpointer self) {
    std::array<char, 4096> events{};
    while (read(descriptor, events.data(), events.size()) > 0) {
    }
    static_cast<State*>(self)->reload();
    return G_SOURCE_CONTINUE;
}

void Access::State::reload() {
    changed = reloads;
    if (reloads)
        return;
    const auto read = std::make_shared<Known>();
    reloads = worker.run([read] { *read = readKnown(); },
                         [this, read](const std::exception_ptr& /*failure*/) {
                             known = std::move(*read);
                             reloads = false;
                             sweep();
                             if (changed)
                                 reload();
                         });
    changed = !reloads;
}

// ---- Sessions ------------------------------------------------------------------------------------------------

// A session ends when its account has gone, or has another password or role.
bool Access::State::mayStay(const Session& session) const {
    return session.passwordHash.empty() ||
           std::any_of(known.accounts.begin(), known.accounts.end(), [&session](const Account& account) {
               return account.name == session.account && account.role == session.role &&
                      account.hash == session.passwordHash;
           });
}

void Access::State::sweep() {
    tellEnded(sessions.endOld(now(), [this](const Session& session) { return mayStay(session); }));
    if (changed && !reloads)
        reload();
    if (sessions.count() == 0)
        clock.reset();
}

void Access::State::tellEnded(const std::vector<std::string>& keys) const {
    for (const std::string& key : keys)
        sessionEnded(key);
}

const Session* Access::State::sessionOf(std::string_view cookies) {
    const auto value = readCookie(cookies, cookie);
    return value ? sessions.find(*value, now()) : nullptr;
}

void Access::State::endPresent(const Request& request) {
    if (const Session* session = sessionOf(fieldOf(request.headers, "cookie")); session != nullptr) {
        const std::string key = session->key;
        sessions.end(key);
        sessionEnded(key);
    }
}

// Always a new session: what the client sent before the log-in is worth nothing after it.
Response Access::State::begin(const Request& request, Session session, Response response) {
    endPresent(request);
    std::vector<std::string> ended;
    const std::string value = sessions.begin(std::move(session), now(), ended);
    if (clock == nullptr)
        clock = every(sweepSeconds * 1000, [this] { sweep(); });
    tellEnded(ended);
    response.headers.emplace_back("Set-Cookie", setCookie(cookie, value, secure));
    if (response.status == 200)
        response.body = json(sessions.find(value, now())).dump();
    return response;
}

nlohmann::json Access::State::json(const Session* session) const {
    if (session == nullptr)
        return {{"user", ""}, {"role", "none"}, {"expires", nullptr}};
    return {{"user", session->account},
            {"role", roleName(session->role)},
            {"expires", isoTimeIn(sessions.secondsLeft(*session, now()))}};
}

Visitor Access::State::identifyToken(const std::string& text) const {
    Visitor visitor;
    if (const Token* token = findToken(known.tokens, text, std::time(nullptr)); token != nullptr) {
        visitor.role = token->role;
        visitor.purpose = token->purpose;
        visitor.account = token->name;
        visitor.token = true;
    }
    return visitor;
}

// ---- Handlers ------------------------------------------------------------------------------------------------

void Access::State::logIn(const Request& request, const Answer& answer) {
    LogIn tried = readLogIn(request);
    if (const std::int64_t wait = tries.begin(request.address, now()); wait > 0)
        return answer(
            refusedLogIn(tried, 429, "Too many tries; wait " + std::to_string(wait) + " seconds", wait));
    if (tried.password.size() > longestPassword)
        tried.password.clear();
    const auto found = std::make_shared<Account>();
    const auto task = [found, user = tried.user, password = tried.password] {
        for (Account& account : readAccounts()) {
            if (account.name == user)
                *found = std::move(account);
        }
        if (!fitsPassword(password, found->hash))
            *found = {};
    };
    const auto done = [this, found, request, answer, tried](const std::exception_ptr& failure) {
        if (failure != nullptr || found->role == Role::None)
            return answer(refusedLogIn(tried, 401, "The user or the password is wrong", 0));
        tries.giveBack(request.address);
        Session session;
        session.account = found->name;
        session.passwordHash = found->hash;
        session.role = found->role;
        answer(begin(request, session, tried.form ? redirect(tried.next) : jsonResponse("")));
    };
    if (!worker.run(task, done))
        answer(refusedLogIn(tried, 503, "Too many people are logging in; try again in a moment", 5));
}

void Access::State::logOut(const Request& request, const Answer& answer) {
    endPresent(request);
    Response response = request.type == "application/x-www-form-urlencoded"
                            ? redirect("/")
                            : jsonResponse(json(nullptr).dump());
    response.headers.emplace_back("Set-Cookie", setCookie(cookie, "", secure));
    answer(response);
}

void Access::State::openLink(const Request& request, const Answer& answer) {
    if (const std::int64_t wait = tries.begin(request.address, now()); wait > 0)
        return answer(
            refusedLogIn({}, 429, "Too many tries; wait " + std::to_string(wait) + " seconds", wait));
    const auto good = std::make_shared<bool>(false);
    const auto task = [good, secret = fieldOf(request.parts, "secret")] { *good = useOneTimeLink(secret); };
    const auto done = [this, good, request, answer](const std::exception_ptr& /*failure*/) {
        if (!*good)
            return answer(errorResponse(
                403, "This link was used already, or it is too old; decoderctl panel-open makes a new one"));
        tries.giveBack(request.address);
        Session session;
        session.account = "console";
        session.role = Role::Admin;
        answer(begin(request, session, redirect("/")));
    };
    if (!worker.run(task, done))
        answer(errorResponse(503, "Too many people are logging in; try again in a moment"));
}

// ---- Access --------------------------------------------------------------------------------------------------

Access::Access(const AccessOptions& options, std::function<void(std::string_view)> sessionEnded)
    : state_(std::make_unique<State>(options, std::move(sessionEnded))) {
    state_->watchFiles();
    state_->reload(); // they may have changed just before
}

Access::~Access() = default;

void Access::setPlace(std::uint16_t port, bool secure) {
    state_->cookie = cookieName(port, secure);
    state_->secure = secure;
}

void Access::addRoutes(Router& router) {
    State* state = state_.get();
    RouteRules small;
    small.least = Role::None;
    small.mostBody = 4096;
    router.add("POST", "/login", small,
               [state](const Request& request, const Answer& answer) { state->logIn(request, answer); });
    router.add("POST", "/logout", small,
               [state](const Request& request, const Answer& answer) { state->logOut(request, answer); });
    router.add("GET", "/open/{secret}", small,
               [state](const Request& request, const Answer& answer) { state->openLink(request, answer); });
    router.add("GET", "/api/v1/session", small, [state](const Request& request, const Answer& answer) {
        const nlohmann::json token{
            {"user", request.account}, {"role", roleName(request.role)}, {"expires", nullptr}};
        const Session* session = state->sessionOf(fieldOf(request.headers, "cookie"));
        answer(jsonResponse((session == nullptr ? token : state->json(session)).dump()));
    });
}

Visitor Access::identify(const Credentials& credentials) {
    if (!credentials.token.empty())
        return state_->identifyToken(credentials.token);
    Visitor visitor;
    if (const Session* session = state_->sessionOf(credentials.cookies); session != nullptr) {
        visitor.role = session->role;
        visitor.account = session->account;
        visitor.session = session->key;
        visitor.csrf = session->csrf;
    }
    return visitor;
}

std::string Access::sessionJson(std::string_view sessionKey) const {
    return state_->json(state_->sessions.findByKey(sessionKey)).dump();
}

} // namespace panel
