#include "appliance/encoder/request_log.h"

#include "appliance/encoder/http_message.h"

#include <utility>

namespace {

constexpr std::size_t maxRecords = 10000;

} // namespace

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
