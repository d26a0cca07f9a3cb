#include "zarvo/offline/ZMOfflineDownload.h"

#include <cmath>
#include <filesystem>
#include <limits>
#include <system_error>
#include <utility>

#include "zarvo/platform/AppDirectories.h"
#include "zarvo/platform/FatalError.h"
#include "zarvo/platform/UrlParts.h"

namespace zarvo {
namespace {

namespace fs = std::filesystem;

// The text of `path` made a valid relative URL reference: bytes outside the path characters
// of RFC 3986 are percent-encoded, and so is ":", which would make the first segment read as
// a scheme; "/" is kept.
std::string percentEncodedPath(std::string_view path) {
    return url::percentEncode(
        path, [](unsigned char c) { return c != ':' && (url::isPathChar(c) || c == '/'); });
}

// The key directory's name for an id: the id itself, unless it could name anything but one
// entry inside ".keys" (a "/", ".", ".." or nothing), then its percent-encoded form.
std::string keyDirectoryName(const std::string& id) {
    if (id.empty() || id == "." || id == ".." || id.find('/') != std::string::npos ||
        id.find('\0') != std::string::npos) {
        std::string name = url::percentEncode(
            id, [](unsigned char c) { return c != '/' && c != '%' && c != '.' && c != '\0'; });
        return name.empty() ? "%00" : name;
    }
    return id;
}

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

ZMOfflineDownload::ZMOfflineDownload(std::string id, std::string title,
                                     ZMOfflineDownloadState state, Url url,
                                     std::optional<Url> offlineUrl, std::optional<Url> licenseUrl,
                                     std::optional<std::vector<UrlQueryItem>> licenseUrlQueryItems,
                                     std::optional<Url> fpsCertUrl,
                                     std::optional<std::vector<std::string>> audioIds,
                                     std::optional<std::vector<std::string>> subtitlesIds,
                                     std::int64_t minBitrate,
                                     std::map<std::string, std::string> headers, double progress)
    : id_(std::move(id)),
      title_(std::move(title)),
      licenseUrl_(std::move(licenseUrl)),
      licenseUrlQueryItems_(std::move(licenseUrlQueryItems)),
      fpsCertUrl_(std::move(fpsCertUrl)),
      audioIds_(std::move(audioIds)),
      subtitlesIds_(std::move(subtitlesIds)),
      minBitrate_(minBitrate),
      headers_(std::move(headers)),
      state_(state),
      url_(std::move(url)),
      progress_(progress) {
    urlAsset_ = UrlAsset::make(url_);
    setOfflineUrl(offlineUrl ? std::optional<std::string>(offlineUrl->absoluteString())
                             : std::nullopt);
}

ZMOfflineDownloadState ZMOfflineDownload::state() const {
    std::lock_guard lock(mutex_);
    return state_;
}

void ZMOfflineDownload::setState(ZMOfflineDownloadState state) {
    std::lock_guard lock(mutex_);
    state_ = state;
    encodedIsCurrent_ = false;
}

Url ZMOfflineDownload::url() const {
    std::lock_guard lock(mutex_);
    return url_;
}

void ZMOfflineDownload::setUrl(Url url) {
    std::lock_guard lock(mutex_);
    url_ = std::move(url);
    encodedIsCurrent_ = false;
}

double ZMOfflineDownload::progress() const {
    std::lock_guard lock(mutex_);
    return progress_;
}

void ZMOfflineDownload::setProgress(double progress) {
    std::lock_guard lock(mutex_);
    progress_ = progress;
    encodedIsCurrent_ = false;
}

std::optional<Url> ZMOfflineDownload::offlineUrl() const {
    std::lock_guard lock(mutex_);
    return offlineUrl_;
}

void ZMOfflineDownload::setOfflineUrl(const std::optional<std::string>& path) {
    if (!path) {
        std::lock_guard lock(mutex_);
        offlineUrl_.reset();
        offlineUrlAsset_.reset();
        encodedIsCurrent_ = false;
        return;
    }
    std::string kept = *path;
    if (std::size_t library = kept.find("Library"); library != std::string::npos) {
        kept.erase(0, library);
    }
    // The kept text is a URL reference; a plain path with characters a URL cannot hold
    // (spaces, "%") is encoded so that it still names the same file.
    std::optional<Url> offlineUrl = Url::parse(kept);
    if (!offlineUrl) {
        offlineUrl = Url::parse(percentEncodedPath(kept));
    }
    std::string relativePath = offlineUrl ? offlineUrl->decodedPath() : kept;
    fs::path packagePath = AppDirectories::home() / fs::path(relativePath).relative_path();
    auto asset = UrlAsset::make(Url::fileUrl(packagePath.string()));

    std::lock_guard lock(mutex_);
    offlineUrl_ = std::move(offlineUrl);
    offlineUrlAsset_ = std::move(asset);
    encodedIsCurrent_ = false;
}

void ZMOfflineDownload::assignOfflineUrl(std::optional<Url> offlineUrl) {
    std::lock_guard lock(mutex_);
    offlineUrl_ = std::move(offlineUrl);
    encodedIsCurrent_ = false;
}

std::shared_ptr<UrlAsset> ZMOfflineDownload::urlAsset() const {
    std::lock_guard lock(mutex_);
    return urlAsset_;
}

void ZMOfflineDownload::setUrlAsset(std::shared_ptr<UrlAsset> asset) {
    std::lock_guard lock(mutex_);
    urlAsset_ = std::move(asset);
}

std::shared_ptr<UrlAsset> ZMOfflineDownload::offlineUrlAsset() const {
    std::lock_guard lock(mutex_);
    return offlineUrlAsset_;
}

void ZMOfflineDownload::setOfflineUrlAsset(std::shared_ptr<UrlAsset> asset) {
    std::lock_guard lock(mutex_);
    offlineUrlAsset_ = std::move(asset);
}

std::optional<std::string> ZMOfflineDownload::bookmarkData() const {
    std::lock_guard lock(mutex_);
    return bookmarkData_;
}

void ZMOfflineDownload::setBookmarkData(std::optional<std::string> bookmarkData) {
    std::lock_guard lock(mutex_);
    bookmarkData_ = std::move(bookmarkData);
}

std::shared_ptr<FPResourceLoaderDelegate> ZMOfflineDownload::resourceLoader() const {
    std::lock_guard lock(mutex_);
    return resourceLoader_;
}

void ZMOfflineDownload::setResourceLoader(
    std::shared_ptr<FPResourceLoaderDelegate> resourceLoader) {
    std::lock_guard lock(mutex_);
    resourceLoader_ = std::move(resourceLoader);
}

Url ZMOfflineDownload::contentKeysDirPath() const {
    fs::path directory = AppDirectories::documents() / ".keys" / keyDirectoryName(id_);
    std::error_code error;
    if (!fs::exists(fs::symlink_status(directory, error))) {
        error = AppDirectories::makeFolder(directory);
        if (error) {
            fatalError("ZMOfflineDownload: cannot create the content keys directory " +
                       directory.string() + ": " + error.message());
        }
    }
    return Url::fileUrl(directory.string(), true);
}

std::string ZMOfflineDownload::description() const {
    return "Download(ID = " + id_ + ", TITLE = " + title_ + ")";
}

Json ZMOfflineDownload::toJson() const {
    std::lock_guard lock(mutex_);
    return jsonLocked();
}

Json ZMOfflineDownload::jsonLocked() const {
    Json object = Json::object();
    object["id"] = id_;
    object["title"] = title_;
    object["playlist_url"] = url_.absoluteString();
    object["state"] = rawValue(state_);
    if (licenseUrl_) {
        object["license_url"] = licenseUrl_->absoluteString();
    }
    if (fpsCertUrl_) {
        object["fps_cert_url"] = fpsCertUrl_->absoluteString();
    }
    if (offlineUrl_) {
        object["offlineUrl"] = offlineUrl_->absoluteString();
    }
    object["download_progress"] = progress_;
    if (audioIds_) {
        object["audio_ids"] = *audioIds_;
    }
    if (subtitlesIds_) {
        object["subtitles_ids"] = *subtitlesIds_;
    }
    object["min_bitrate"] = minBitrate_;
    object["headers"] = Json::object();
    for (const auto& [name, value] : headers_) {
        object["headers"][name] = value;
    }
    return object;
}

std::shared_ptr<ZMOfflineDownload> ZMOfflineDownload::fromJson(const Json& object) {
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

bool ZMOfflineDownload::appendJson(std::string& text) const {
    std::lock_guard lock(mutex_);
    if (!encodedIsCurrent_) {
        // A number that is not finite would be written as null, which does not read back.
        if (!std::isfinite(progress_)) {
            return appendLastEncoded(text);
        }
        try {
            encodedJson_ = jsonLocked().dump(-1, ' ', false, Json::error_handler_t::strict);
        } catch (const Json::type_error&) {
            return appendLastEncoded(text);  // text that is not UTF-8
        }
        encodedIsCurrent_ = true;
    }
    text += *encodedJson_;
    return true;
}

bool ZMOfflineDownload::appendLastEncoded(std::string& text) const {
    if (encodedJson_) {
        text += *encodedJson_;
    }
    return false;
}

ZMOfflineDownload::EncodedList ZMOfflineDownload::encodeList(const List& downloads,
                                                             std::size_t sizeHint) {
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
        if (!download->appendJson(text)) {
            encoded.unencodedIds.push_back(download->id());
            if (text.size() == start) {
                text.resize(before);  // nothing written: no separator either
            }
        }
    }
    text += ']';
    return encoded;
}

std::optional<ZMOfflineDownload::List> ZMOfflineDownload::decodeList(std::string_view text) {
    std::optional<Json> array = json::parse(text);
    if (!array || !array->is_array()) {
        return std::nullopt;
    }
    List downloads;
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
