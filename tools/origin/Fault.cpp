#include "origin/Fault.h"

#include <charconv>
#include <vector>

namespace zarvo::origin {

namespace {

std::optional<long long> parseNumber(std::string_view text) {
    long long value = 0;
    const auto* end = text.data() + text.size();
    auto [ptr, ec] = std::from_chars(text.data(), end, value);
    if (text.empty() || ec != std::errc() || ptr != end || value < 0) {
        return std::nullopt;
    }
    return value;
}

// Splits at the last colons so that the prefix itself may hold ":".
std::vector<std::string_view> splitFields(std::string_view text, std::size_t maxNumbers) {
    std::vector<std::string_view> numbers;
    while (numbers.size() < maxNumbers) {
        const std::size_t colon = text.rfind(':');
        if (colon == std::string_view::npos || !parseNumber(text.substr(colon + 1))) {
            break;
        }
        numbers.insert(numbers.begin(), text.substr(colon + 1));
        text = text.substr(0, colon);
    }
    numbers.insert(numbers.begin(), text);
    return numbers;
}

bool validPrefix(std::string_view prefix) {
    return !prefix.empty() && prefix.front() == '/';
}

}  // namespace

std::optional<Fault> Fault::parseStatus(std::string_view text) {
    const auto fields = splitFields(text, 2);
    if (fields.size() < 2 || !validPrefix(fields[0])) {
        return std::nullopt;
    }
    const auto status = parseNumber(fields[1]);
    if (!status || *status < 100 || *status > 599) {
        return std::nullopt;
    }
    Fault fault;
    fault.pathPrefix = std::string(fields[0]);
    fault.status = static_cast<int>(*status);
    if (fields.size() == 3) {
        fault.count = static_cast<int>(*parseNumber(fields[2]));
    }
    return fault;
}

std::optional<Fault> Fault::parseDelay(std::string_view text) {
    const auto fields = splitFields(text, 1);
    if (fields.size() != 2 || !validPrefix(fields[0])) {
        return std::nullopt;
    }
    Fault fault;
    fault.pathPrefix = std::string(fields[0]);
    fault.delaySeconds = static_cast<double>(*parseNumber(fields[1])) / 1000.0;
    return fault;
}

}  // namespace zarvo::origin
