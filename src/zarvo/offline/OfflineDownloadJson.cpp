#include "zarvo/offline/OfflineDownloadJson.h"

#include <cmath>
#include <cstdint>
#include <limits>
#include <map>
#include <mutex>
#include <utility>

#include "zarvo/offline/ZMOfflineDownloadState.h"
#include "zarvo/platform/Url.h"
#include "zarvo/platform/UrlQueryItem.h"

namespace zarvo {
namespace {

std::optional<std::int64_t> integerValue(const Json& value) {
    if (value.is_number_integer()) {
        if (value.is_number_unsigned() &&
            value.get<std::uint64_t>() >
                static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
            return std::nullopt;
        }
        return value.get<std::int64_t>();
    }
    if (value.is_number_float()) {
        double number = value.get<double>();
        // Whole numbers written with a fraction part ("2.0") read as integers.
        if (std::trunc(number) == number && number >= -9.2e18 && number <= 9.2e18) {
            return static_cast<std::int64_t>(number);
        }
    }
    return std::nullopt;
}

const Json* member(const Json& object, const char* key) {
    auto found = object.find(key);
    return found == object.end() ? nullptr : &*found;
}

std::optional<std::string> stringMember(const Json& object, const char* key) {
    const Json* value = member(object, key);
    if (value == nullptr || !value->is_string()) {
        return std::nullopt;
    }
    return value->get<std::string>();
}

std::optional<Url> urlMember(const Json& object, const char* key) {
    std::optional<std::string> text = stringMember(object, key);
    return text ? Url::parse(*text) : std::nullopt;
}

std::optional<std::vector<std::string>> stringsMember(const Json& object, const char* key) {
    const Json* value = member(object, key);
    if (value == nullptr || !value->is_array()) {
        return std::nullopt;
    }
    std::vector<std::string> strings;
    strings.reserve(value->size());
    for (const Json& element : *value) {
        if (!element.is_string()) {
            return std::nullopt;
        }
        strings.push_back(element.get<std::string>());
    }
    return strings;
}

std::map<std::string, std::string> headersMember(const Json& object, const char* key) {
    const Json* value = member(object, key);
    if (value == nullptr || !value->is_object()) {
        return {};
    }
    std::map<std::string, std::string> headers;
    for (const auto& [name, field] : value->items()) {
        if (!field.is_string()) {
            return {};
        }
        headers.emplace(name, field.get<std::string>());
    }
    return headers;
}

}  // namespace

Json OfflineDownloadJson::toJson(const ZMOfflineDownload& download) {
    std::lock_guard lock(download.mutex_);
    return jsonLocked(download);
}

Json OfflineDownloadJson::jsonLocked(const ZMOfflineDownload& download) {
    Json object = Json::object();
    object["id"] = download.id_;
    object["title"] = download.title_;
    object["playlist_url"] = download.url_.absoluteString();
    object["state"] = rawValue(download.state_);
    if (download.licenseUrl_) {
        object["license_url"] = download.licenseUrl_->absoluteString();
    }
    if (download.fpsCertUrl_) {
        object["fps_cert_url"] = download.fpsCertUrl_->absoluteString();
    }
    if (download.offlineUrl_) {
        object["offlineUrl"] = download.offlineUrl_->absoluteString();
    }
    object["download_progress"] = download.progress_;
    if (download.audioIds_) {
        object["audio_ids"] = *download.audioIds_;
    }
    if (download.subtitlesIds_) {
        object["subtitles_ids"] = *download.subtitlesIds_;
    }
    object["min_bitrate"] = download.minBitrate_;
    object["headers"] = Json::object();
    for (const auto& [name, value] : download.headers_) {
        object["headers"][name] = value;
    }
    return object;
}

std::shared_ptr<ZMOfflineDownload> OfflineDownloadJson::fromJson(const Json& object) {
    if (!object.is_object()) {
        return nullptr;
    }
    std::optional<std::string> id = stringMember(object, "id");
    if (!id) {
        return nullptr;
    }
    std::optional<std::string> title = stringMember(object, "title");
    if (!title) {
        return nullptr;
    }
    const Json* stateValue = member(object, "state");
    std::optional<std::int64_t> stateNumber = stateValue ? integerValue(*stateValue) : std::nullopt;
    std::optional<ZMOfflineDownloadState> state =
        stateNumber ? offlineDownloadStateFromRawValue(*stateNumber) : std::nullopt;
    if (!state) {
        return nullptr;
    }
    std::optional<Url> url = urlMember(object, "playlist_url");
    if (!url) {
        return nullptr;
    }
    std::optional<Url> offlineUrl = urlMember(object, "offlineUrl");
    std::optional<Url> licenseUrl = urlMember(object, "license_url");
    std::optional<Url> fpsCertUrl = urlMember(object, "fps_cert_url");
    const Json* progress = member(object, "download_progress");
    if (progress == nullptr || !progress->is_number()) {
        return nullptr;
    }
    std::optional<std::vector<std::string>> audioIds = stringsMember(object, "audio_ids");
    std::optional<std::vector<std::string>> subtitlesIds = stringsMember(object, "subtitles_ids");
    const Json* minBitrateValue = member(object, "min_bitrate");
    std::int64_t minBitrate = minBitrateValue ? integerValue(*minBitrateValue).value_or(0) : 0;
    std::map<std::string, std::string> headers = headersMember(object, "headers");

    return std::make_shared<ZMOfflineDownload>(
        std::move(*id), std::move(*title), *state, std::move(*url), std::move(offlineUrl),
        std::move(licenseUrl), std::vector<UrlQueryItem>{{"persistent", "true"}},
        std::move(fpsCertUrl), std::move(audioIds), std::move(subtitlesIds), minBitrate,
        std::move(headers), progress->get<double>());
}

bool OfflineDownloadJson::appendJson(const ZMOfflineDownload& download, std::string& text) {
    std::lock_guard lock(download.mutex_);
    if (!download.encodedIsCurrent_) {
        // A number that is not finite would be written as null, which does not read back.
        if (!std::isfinite(download.progress_)) {
            return appendLastEncoded(download, text);
        }
        try {
            download.encodedJson_ =
                jsonLocked(download).dump(-1, ' ', false, Json::error_handler_t::strict);
        } catch (const Json::type_error&) {
            return appendLastEncoded(download, text);  // text that is not UTF-8
        }
        download.encodedIsCurrent_ = true;
    }
    text += *download.encodedJson_;
    return true;
}

bool OfflineDownloadJson::appendLastEncoded(const ZMOfflineDownload& download, std::string& text) {
    if (download.encodedJson_) {
        text += *download.encodedJson_;
    }
    return false;
}

OfflineDownloadJson::EncodedList OfflineDownloadJson::encodeList(
    const ZMOfflineDownload::List& downloads, std::size_t sizeHint) {
    EncodedList encoded;
    std::string& text = encoded.text;
    text.reserve(sizeHint);
    text += '[';
    for (const auto& download : downloads) {
        const std::size_t before = text.size();
        if (before > 1) {
            text += ',';
        }
        const std::size_t start = text.size();
        if (!appendJson(*download, text)) {
            encoded.unencodedIds.push_back(download->id());
            if (text.size() == start) {
                text.resize(before);  // nothing written: no separator either
            }
        }
    }
    text += ']';
    return encoded;
}

std::optional<ZMOfflineDownload::List> OfflineDownloadJson::decodeList(std::string_view text) {
    std::optional<Json> array = json::parse(text);
    if (!array || !array->is_array()) {
        return std::nullopt;
    }
    ZMOfflineDownload::List downloads;
    downloads.reserve(array->size());
    for (const Json& object : *array) {
        std::shared_ptr<ZMOfflineDownload> download = fromJson(object);
        if (!download) {
            return std::nullopt;
        }
        downloads.push_back(std::move(download));
    }
    return downloads;
}

}  // namespace zarvo
