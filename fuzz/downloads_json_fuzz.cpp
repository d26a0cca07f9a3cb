// The downloads list as a crash, another version or another program may leave it under
// "DownloadsJson": any text gives a list or none, and a list that decodes encodes back to text
// that decodes to the same downloads.
#include "zarvo/offline/ZMOfflineDownload.h"

#include "FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace zarvo;
    auto list = ZMOfflineDownload::decodeList(fuzz::text(data, size));
    if (!list) {
        return 0;
    }
    auto encoded = ZMOfflineDownload::encodeList(*list);
    fuzz::check(encoded.unencodedIds.empty());
    auto again = ZMOfflineDownload::decodeList(encoded.text);
    fuzz::check(again && again->size() == list->size());
    for (std::size_t i = 0; i < list->size(); ++i) {
        fuzz::check((*again)[i]->toJson() == (*list)[i]->toJson());
    }
    return 0;
}
