// The downloads list as a crash, another version or another program may leave it under
// "DownloadsJson": any text gives a list or none, and a list that decodes encodes back to text
// that decodes to the same downloads.
#include "zarvo/offline/OfflineDownloadJson.h"
#include "zarvo/offline/ZMOfflineDownload.h"

#include "FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace zarvo;
    auto list = OfflineDownloadJson::decodeList(fuzz::text(data, size));
    if (!list) {
        return 0;
    }
    auto encoded = OfflineDownloadJson::encodeList(*list);
    fuzz::check(encoded.unencodedIds.empty());
    auto again = OfflineDownloadJson::decodeList(encoded.text);
    fuzz::check(again && again->size() == list->size());
    for (std::size_t i = 0; i < list->size(); ++i) {
        fuzz::check(OfflineDownloadJson::toJson(*(*again)[i]) ==
                    OfflineDownloadJson::toJson(*(*list)[i]));
    }
    return 0;
}
