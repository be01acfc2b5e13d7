#include "appliance/encoder/faults/faults.h"

#include <charconv>
#include <utility>

namespace {

struct Row {
    Fault fault;
    const char* name;
    bool takesNumber;
    int usual; // the number if none is given
    const char* help;
};

constexpr int maxNumber = 1000000;

constexpr std::array<Row, faultCount> rows{{
    {Fault::Refuse, "refuse", false, 0,
     "stop listening, so that connections are refused (end it through --control)"},
    {Fault::Unauthorised, "401", false, 0, "answer 401 to all credentials"},
    {Fault::NotFound, "404", false, 0, "answer 404 to everything"},
    {Fault::ViewUnauthorised, "401-view", false, 0, "answer 401 on the viewer's parameter CGI only"},
    {Fault::ViewNotFound, "404-view", false, 0, "answer 404 on the viewer's parameter CGI only"},
    {Fault::ViewHash, "hash", false, 0, "answer \"# ...\" on the viewer's parameter CGI"},
    {Fault::Stall, "stall", true, 25, "stall=N: after N frames a stream stays open and sends nothing"},
    {Fault::Freeze, "freeze", true, 25, "freeze=N: after N frames a stream repeats the same picture"},
    {Fault::Close, "close", true, 25, "close=N: after N frames a stream is cut off"},
    {Fault::Garbage, "garbage", false, 0, "answer with random bytes"},
    {Fault::Slow, "slow", true, 50, "slow=MS: HTTP: send single bytes, MS milliseconds apart"},
    {Fault::Silent, "silent", false, 0, "accept connections and never answer"},
    {Fault::Huge, "huge", false, 0, "answer with 100 MB"},
    {Fault::EndlessHeaders, "endless-headers", false, 0, "answer with headers that never end"},
    {Fault::Delay, "delay", true, 100, "delay=MS: answer MS milliseconds late"},
    {Fault::WrongCSeq, "wrong-cseq", false, 0, "RTSP: answer with a wrong CSeq"},
    {Fault::NoSession, "no-session", false, 0, "RTSP: answer SETUP without a Session"},
    {Fault::Truncated, "truncated", true, 20, "truncated=N: RTSP: cut off after N bytes of an answer"},
    {Fault::EarlyData, "early-data", false, 0, "RTSP: send interleaved packets before each answer"},
    {Fault::CloseAfter, "close-after", true, 1, "close-after=N: RTSP: cut off after N answers"},
    {Fault::NoRtp, "no-rtp", false, 0, "RTSP: accept PLAY and send no RTP"},
    {Fault::NoRtcp, "no-rtcp", false, 0, "RTSP: send no RTCP"},
    {Fault::SoapGarbage, "soap-garbage", false, 0, "ONVIF: answer with broken XML"},
    {Fault::SoapBomb, "soap-bomb", false, 0, "ONVIF: answer with XML entities that expand to gigabytes"},
    {Fault::SilentSearch, "silent-search", false, 0, "ONVIF: answer no searches"},
    {Fault::ProbeGarbage, "probe-garbage", false, 0, "ONVIF: answer searches with random bytes"},
    {Fault::ForeignAddress, "foreign-address", false, 0, "ONVIF: name an address in another network"},
    {Fault::Clock, "clock", true, 86400, "clock=S: ONVIF: the clock is S seconds ahead"},
}};

constexpr bool rowsInOrder() {
    for (std::size_t i = 0; i < rows.size(); ++i) {
        if (rows[i].fault != static_cast<Fault>(i))
            return false;
    }
    return true;
}
static_assert(rowsInOrder(), "one row per fault, in the order of the enumeration");

constexpr std::string_view separators = " ,\t\r\n";

} // namespace

std::string FaultSet::add(std::string_view list) {
    const FaultSet before = *this;
    while (true) {
        const std::size_t start = list.find_first_not_of(separators);
        if (start == std::string_view::npos)
            return {};
        list.remove_prefix(start);
        const std::string_view word = list.substr(0, list.find_first_of(separators));
        list.remove_prefix(word.size());
        if (std::string error = addOne(word); !error.empty()) {
            *this = before;
            return error;
        }
    }
}

std::string FaultSet::addOne(std::string_view word) {
    const std::size_t equals = word.find('=');
    const std::string_view name = word.substr(0, equals);
    for (const Row& row : rows) {
        if (name != row.name)
            continue;
        int number = row.usual;
        if (equals != std::string_view::npos) {
            if (!row.takesNumber)
                return "fault '" + std::string(name) + "' takes no number";
            const std::string_view text = word.substr(equals + 1);
            const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
            if (error != std::errc{} || end != text.data() + text.size() || number < 0 || number > maxNumber)
                return "fault '" + std::string(name) + "': '" + std::string(text) +
                       "' is not a number from 0 to " + std::to_string(maxNumber);
        }
        numbers_[index(row.fault)] = number;
        return {};
    }
    return "no fault is named '" + std::string(name) + "'";
}

std::string FaultSet::text() const {
    std::string text;
    for (const Row& row : rows) {
        if (!has(row.fault))
            continue;
        text += text.empty() ? "" : " ";
        text += row.name;
        if (row.takesNumber)
            text += "=" + std::to_string(number(row.fault));
    }
    return text;
}

std::string faultsHelp() {
    std::string text;
    for (const Row& row : rows) {
        std::string name = row.name;
        name.resize(18, ' ');
        text += "  " + name + row.help + "\n";
    }
    return text;
}

FaultSet FaultSwitch::current() const {
    const std::lock_guard lock(mutex_);
    return current_;
}

void FaultSwitch::set(FaultSet faults) {
    {
        const std::lock_guard lock(mutex_);
        current_ = faults;
    }
    if (listener_)
        listener_(faults);
}
