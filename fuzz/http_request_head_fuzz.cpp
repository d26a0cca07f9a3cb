// The loopback server's request-head reader: any bytes give a head or a refusal status, never
// read past the bound. A head it accepts has a token method, a target without spaces and at
// most the bounded number of fields, and the same bytes fed in two pieces are read alike.
#include <string>
#include <string_view>

#include "zarvo/media/loopback/HttpRequestHead.h"

#include "FuzzSupport.h"

using namespace zarvo;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const auto progress = HttpRequestHead::progress(bytes);
    const std::size_t length = HttpRequestHead::length(bytes);
    fuzz::check(length <= bytes.size());
    fuzz::check((progress == HttpRequestHead::Progress::tooLarge) ==
                (bytes.size() >= HttpRequestHead::maxBytes &&
                 HttpRequestHead::length(bytes.substr(0, HttpRequestHead::maxBytes)) == 0));
    const auto parsed = HttpRequestHead::parse(bytes);
    if (const int* status = std::get_if<int>(&parsed)) {
        fuzz::check(*status == 400 || *status == 414 || *status == 431 || *status == 505);
        return 0;
    }
    fuzz::check(progress == HttpRequestHead::Progress::complete);
    const auto& head = std::get<HttpRequestHead>(parsed);
    fuzz::check(!head.method.empty() && !head.target.empty());
    fuzz::check(head.target.find(' ') == std::string::npos);
    fuzz::check(head.fields.size() <= HttpRequestHead::maxFields);
    fuzz::check(head.path().size() <= head.target.size());
    // Only the head counts: what follows it changes nothing.
    const auto again = HttpRequestHead::parse(bytes.substr(0, length));
    fuzz::check(std::holds_alternative<HttpRequestHead>(again) &&
                std::get<HttpRequestHead>(again).fields == head.fields);
    return 0;
}
