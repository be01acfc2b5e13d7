#include "appliance/journal/journal.h"

#include <libcommon/log.h>
#include <libcommon/text.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <systemd/sd-journal.h>

namespace {

std::string utcTime(std::uint64_t microseconds) {
    const auto seconds = static_cast<std::time_t>(microseconds / 1'000'000);
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    char date[32];
    std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &utc);
    char text[64];
    std::snprintf(text, sizeof text, "%s.%06uZ", date, static_cast<unsigned>(microseconds % 1'000'000));
    return text;
}

class SystemJournal : public Journal {
public:
    explicit SystemJournal(sd_journal* journal) : journal_(journal) {
        sd_journal_seek_tail(journal_);
        sd_journal_previous(journal_);
    }
    ~SystemJournal() override { sd_journal_close(journal_); }
    SystemJournal(const SystemJournal&) = delete;
    SystemJournal& operator=(const SystemJournal&) = delete;

    std::vector<JournalLine> last(std::size_t lines) override {
        std::vector<JournalLine> found;
        char* place = nullptr; // where follow() goes on
        const bool known = sd_journal_get_cursor(journal_, &place) >= 0;
        sd_journal_seek_tail(journal_);
        while (found.size() < lines && sd_journal_previous(journal_) > 0)
            found.push_back(line());
        std::ranges::reverse(found);
        if (known) {
            sd_journal_seek_cursor(journal_, place);
            sd_journal_next(journal_);
        } else {
            sd_journal_seek_tail(journal_);
            sd_journal_previous(journal_);
        }
        std::free(place);
        return found;
    }

    int fd() const override { return sd_journal_get_fd(journal_); }

    void follow(const std::function<void(const JournalLine&)>& take) override {
        sd_journal_process(journal_);
        for (std::size_t count = 0; count < mostLines && sd_journal_next(journal_) > 0; ++count)
            take(line());
    }

private:
    std::string field(const char* name) const {
        const void* data = nullptr;
        std::size_t length = 0;
        if (sd_journal_get_data(journal_, name, &data, &length) < 0)
            return "";
        const std::string_view text(static_cast<const char*>(data), length);
        return std::string(text.substr(std::min(text.find('=') + 1, text.size())));
    }

    JournalLine line() const {
        std::uint64_t time = 0;
        sd_journal_get_realtime_usec(journal_, &time);
        const std::string level = field("PRIORITY");
        const bool known = level.size() == 1 && level[0] >= '0' && level[0] <= '7';
        // As in a file: colours are left out, and passwords in URLs.
        const JournalLine text = readJournalLine(field("MESSAGE"));
        return {utcTime(time), libcommon::printable(field("SYSLOG_IDENTIFIER")), known ? level[0] - '0' : 6,
                text.text};
    }

    sd_journal* journal_;
};

} // namespace

std::unique_ptr<Journal> openSystemJournal(const std::vector<std::string>& programs) {
    sd_journal* journal = nullptr;
    const int result = sd_journal_open(&journal, SD_JOURNAL_LOCAL_ONLY);
    if (result < 0) {
        logmsg(3, "The system's journal can't be read. (errno=%d %s)", -result, std::strerror(-result));
        return nullptr;
    }
    for (const std::string& program : programs) {
        const std::string match = "SYSLOG_IDENTIFIER=" + program;
        sd_journal_add_match(journal, match.data(), match.size());
    }
    return std::make_unique<SystemJournal>(journal);
}
