#include "appliance/operating/typed_number.h"

#include <algorithm>

std::optional<int> TypedNumber::digit(int value, int count, std::int64_t now) {
    text_ += static_cast<char>('0' + std::clamp(value, 0, 9));
    last_ = now;
    const std::size_t longest = std::to_string(std::max(count - 1, 0)).size();
    const bool full = text_.size() >= longest || std::stol(text_) * 10 > count - 1;
    // A leading 0 may become "05".
    const bool more = text_.size() < longest && text_.find_first_not_of('0') == std::string::npos;
    return full && !more ? take() : std::nullopt;
}

std::optional<int> TypedNumber::tick(std::int64_t now) {
    return !text_.empty() && now - last_ >= pauseUs ? take() : std::nullopt;
}

std::optional<int> TypedNumber::take() {
    const int number = std::stoi(text_);
    text_.clear();
    return number;
}
