#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "zarvo/offline/ZMOfflineDownload.h"
#include "zarvo/platform/Json.h"

namespace zarvo {

// The stored JSON form of downloads, as the downloads store keeps the list. A download's
// fields are read under its own mutex, so a save may encode a download while another thread
// changes it; the download keeps the text it was last encoded to until a field changes.
class OfflineDownloadJson {
public:
    // Keys in their written order, optional ones only when present.
    static Json toJson(const ZMOfflineDownload& download);
    // A download rebuilt from its JSON form; nullptr when a required key is missing or of the
    // wrong type, or the state number is not a known state.
    static std::shared_ptr<ZMOfflineDownload> fromJson(const Json& object);

    // Appends the JSON text of toJson() to `text` and returns true. The text is kept until a
    // field it holds changes, so saving a long list after one download moved on re-encodes
    // only that download. Values JSON cannot hold (a progress that is not a finite number,
    // text that is not UTF-8) give false, and the text the download last had is appended
    // instead (nothing when it never had one).
    static bool appendJson(const ZMOfflineDownload& download, std::string& text);

    struct EncodedList {
        std::string text;
        // Downloads written with their last encodable values, or left out when they had none.
        std::vector<std::string> unencodedIds;
    };
    // The JSON array text of a list; one download that cannot be encoded does not keep the
    // others out. `sizeHint` is the expected length (the previous text's, say).
    static EncodedList encodeList(const ZMOfflineDownload::List& downloads,
                                  std::size_t sizeHint = 0);
    // The list in a JSON array text; nothing when the text or any download in it is unreadable.
    static std::optional<ZMOfflineDownload::List> decodeList(std::string_view text);

private:
    // Both with the download's mutex held.
    static Json jsonLocked(const ZMOfflineDownload& download);
    static bool appendLastEncoded(const ZMOfflineDownload& download, std::string& text);
};

}  // namespace zarvo
