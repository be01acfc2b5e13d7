#include "appliance/screen/monitor/screen_report.h"

#include "appliance/screen/screen_settings.h"

#include <libcommon/params.h>

#include <fstream>
#include <iterator>
#include <sstream>

namespace screen {
namespace {

constexpr std::int64_t settledUs = 300'000;

void set(const char* name, const std::string& value) {
    ParamWrapper(1, true)[name] = value.c_str();
}

bool isOurs(pid_t pid, const ReportNames& names) {
    return ParamWrapper(1, false)[names.pid].toString() == std::to_string(pid);
}

} // namespace

ScreenReport::ScreenReport(pid_t pid, const ReportNames& names) : pid_(pid), names_(names) {}

void ScreenReport::write(const std::string& text) {
    if (written_.empty()) {
        set(names_.pid, std::to_string(pid_));
        set(names_.start, processStart(pid_));
    }
    set(names_.size, text);
    written_ = text;
}

void ScreenReport::update(Size size, std::int64_t now) {
    const std::string text = sizeText(size);
    if (text != waiting_) {
        waiting_ = text;
        since_ = now;
    }
    if (text != written_ && (written_.empty() || now - since_ >= settledUs))
        write(text);
}

void withdrawSize(pid_t pid) {
    if (isOurs(pid, monitorReport))
        set(monitorReport.size, "");
}

void withdrawReport(pid_t pid, const ReportNames& names) {
    if (!isOurs(pid, names))
        return;
    for (const char* name : {names.size, names.start, names.pid})
        set(name, "");
}

std::string processStart(pid_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    const std::size_t end = text.rfind(')'); // the name before it may have blanks
    if (end == std::string::npos)
        return "";
    std::istringstream rest(text.substr(end + 1));
    std::string word;
    for (int field = 3; field <= 22; ++field)
        rest >> word;
    return word;
}

} // namespace screen
