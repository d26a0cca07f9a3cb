// A tracking session file as a crash or another version may leave it: any text gives a session
// or none, and a session that decodes encodes back to text that decodes to the same session.
#include "zarvo/tracking/ZMTrackingSessionStorageData.h"

#include "FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace zarvo;
    auto session = ZMTrackingSessionStorageData::decode(fuzz::text(data, size));
    if (!session) {
        return 0;
    }
    const std::string text = session->encode();
    auto again = ZMTrackingSessionStorageData::decode(text);
    fuzz::check(again && again->encode() == text);
    return 0;
}
