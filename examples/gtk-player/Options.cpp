#include "Options.h"

#include <charconv>
#include <cmath>

namespace gtkplayer {

namespace {

std::optional<double> parseSeconds(const std::string& text) {
    double value = 0;
    const auto [end, status] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || status != std::errc() || end != text.data() + text.size() ||
        !std::isfinite(value) || value < 0) {
        return std::nullopt;
    }
    return value;
}

}  // namespace

std::optional<zarvo::Url> streamAddress(std::string_view text) {
    if (text.starts_with('/')) {
        return zarvo::Url::fileUrl(text);
    }
    auto url = zarvo::Url::parse(text);
    if (!url || url->isFileUrl()) {
        return url;
    }
    const auto host = url->host();
    if (!url->isHttp() || !host || host->empty()) {
        return std::nullopt;
    }
    return url;
}

std::variant<Options, std::string> parseOptions(const std::vector<std::string>& arguments) {
    Options options;
    std::optional<zarvo::Url> cert;
    std::optional<zarvo::Url> license;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        const bool hasValue = i + 1 < arguments.size();
        if (argument == "--quit-after") {
            options.quitAfterSeconds = hasValue ? parseSeconds(arguments[++i]) : std::nullopt;
            if (!options.quitAfterSeconds) {
                return "--quit-after needs a number of seconds";
            }
        } else if (argument == "--cert" || argument == "--license") {
            auto url = hasValue ? zarvo::Url::parse(arguments[++i]) : std::nullopt;
            if (!url || !url->isHttp()) {
                return argument + " needs an http or https URL";
            }
            (argument == "--cert" ? cert : license) = std::move(url);
        } else if (argument.starts_with('-')) {
            return "unknown option " + argument;
        } else if (options.url) {
            return "one URL only";
        } else {
            options.url = streamAddress(argument);
            if (!options.url) {
                return argument + " is not an http, https or file URL";
            }
        }
    }
    if (cert.has_value() != license.has_value()) {
        return "--cert and --license go together";
    }
    if (cert) {
        options.drm.emplace(*cert, *license);
    }
    return options;
}

}  // namespace gtkplayer
