#include "appliance/encoder/device/request_log.h"

#include "appliance/serving/text.h"

#include <chrono>
#include <utility>

namespace {

constexpr std::size_t maxRecords = 10000;

} // namespace

std::int64_t millisecondsSince1970() {
    const auto time = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(time).count();
}

void RequestLog::add(RequestRecord record) {
    const std::lock_guard lock(mutex_);
    records_.push_back(std::move(record));
    if (records_.size() > maxRecords)
        records_.pop_front();
}

void RequestLog::clear() {
    const std::lock_guard lock(mutex_);
    records_.clear();
}

std::string RequestLog::json() const {
    const std::lock_guard lock(mutex_);
    std::string text = "[";
    for (const RequestRecord& record : records_) {
        text += text.size() == 1 ? "\n" : ",\n";
        text += "{\"time\": " + std::to_string(record.time) + ", \"protocol\": " + jsonText(record.protocol) +
                ", \"connection\": " + std::to_string(record.connection) +
                ", \"method\": " + jsonText(record.method) + ", \"target\": " + jsonText(record.target) +
                ", \"user\": " + jsonText(record.user) + ", \"status\": " + std::to_string(record.status) +
                "}";
    }
    return text + "\n]\n";
}
