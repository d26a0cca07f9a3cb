#include "zarvo/media/loopback/HlsAttributeList.h"

#include <algorithm>
#include <charconv>
#include <limits>

namespace zarvo {

HlsAttributeList::HlsAttributeList(std::string_view line, std::size_t pos) {
    const std::size_t size = line.size();
    std::size_t separator = std::string_view::npos;
    while (pos < size) {
        while (pos < size && isBlank(line[pos])) {
            ++pos;
        }
        const std::size_t begin = pos;
        while (pos < size && line[pos] != '=' && line[pos] != ',') {
            ++pos;
        }
        if (pos == size) {
            break;
        }
        if (line[pos] == ',') {
            separator = pos++;
            continue;
        }
        Attribute attribute;
        attribute.name = trim(line.substr(begin, pos - begin));
        attribute.separator = separator;
        attribute.begin = begin;
        ++pos;
        while (pos < size && isBlank(line[pos])) {
            ++pos;
        }
        attribute.valueBegin = pos;
        if (pos < size && line[pos] == '"') {
            const std::size_t close = line.find('"', pos + 1);
            attribute.valueEnd = close == std::string_view::npos ? size : close + 1;
            attribute.value =
                line.substr(pos + 1, (close == std::string_view::npos ? size : close) - pos - 1);
            attribute.end = std::min(line.find(',', attribute.valueEnd), size);
        } else {
            attribute.end = std::min(line.find(',', pos), size);
            attribute.value = trim(line.substr(pos, attribute.end - pos));
            attribute.valueEnd = pos + attribute.value.size();
        }
        attributes_.push_back(attribute);
        separator = attribute.end;
        pos = attribute.end + 1;
    }
}

const HlsAttributeList::Attribute* HlsAttributeList::find(std::string_view name) const {
    for (const Attribute& attribute : attributes_) {
        if (attribute.name == name) {
            return &attribute;
        }
    }
    return nullptr;
}

std::optional<std::string> HlsAttributeList::text(std::string_view name) const {
    const Attribute* attribute = find(name);
    return attribute ? std::optional<std::string>(attribute->value) : std::nullopt;
}

std::optional<std::int64_t> HlsAttributeList::integer(std::string_view name) const {
    const Attribute* attribute = find(name);
    return attribute ? readInteger(attribute->value) : std::nullopt;
}

std::optional<double> HlsAttributeList::decimal(std::string_view name) const {
    const Attribute* attribute = find(name);
    return attribute ? readDecimal(attribute->value) : std::nullopt;
}

std::optional<Date> HlsAttributeList::date(std::string_view name) const {
    const Attribute* attribute = find(name);
    return attribute ? readDate(attribute->value) : std::nullopt;
}

bool HlsAttributeList::yes(std::string_view name) const {
    const Attribute* attribute = find(name);
    return attribute && attribute->value == "YES";
}

std::string_view HlsAttributeList::trim(std::string_view text) {
    while (!text.empty() && isBlank(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && isBlank(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

std::optional<std::int64_t> HlsAttributeList::readInteger(std::string_view text) {
    text = trim(text);
    if (text.empty()) {
        return std::nullopt;
    }
    std::int64_t value = 0;
    for (char c : text) {
        if (c < '0' || c > '9') {
            return std::nullopt;
        }
        const int digit = c - '0';
        if (value > (std::numeric_limits<std::int64_t>::max() - digit) / 10) {
            return std::nullopt;
        }
        value = value * 10 + digit;
    }
    return value;
}

std::optional<double> HlsAttributeList::readDecimal(std::string_view text) {
    text = trim(text);
    bool digits = false;
    int points = 0;
    for (char c : text) {
        if (c >= '0' && c <= '9') {
            digits = true;
        } else if (c == '.') {
            ++points;
        } else {
            return std::nullopt;
        }
    }
    if (!digits || points > 1) {
        return std::nullopt;
    }
    double value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return value;
}

std::optional<Date> HlsAttributeList::readDate(std::string_view text) {
    Date date;
    if (!Date::parseIso8601(std::string(trim(text)), date)) {
        return std::nullopt;
    }
    return date;
}

HlsAttributeList::Edit HlsAttributeList::removal(const Attribute& attribute, std::size_t lineSize) {
    if (attribute.separator != std::string_view::npos) {
        return {attribute.separator, attribute.end, ""};
    }
    return {attribute.begin, std::min(attribute.end + 1, lineSize), ""};
}

std::string HlsAttributeList::edited(std::string_view line, std::vector<Edit>& edits) {
    std::sort(edits.begin(), edits.end(),
              [](const Edit& a, const Edit& b) { return a.begin < b.begin; });
    std::string out;
    std::size_t pos = 0;
    for (const Edit& edit : edits) {
        if (edit.begin > pos) {
            out.append(line.substr(pos, edit.begin - pos));
        }
        out += edit.text;
        pos = std::max(pos, edit.end);
    }
    out.append(line.substr(pos));
    return out;
}

}  // namespace zarvo
