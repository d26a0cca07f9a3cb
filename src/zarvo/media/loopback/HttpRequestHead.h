#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace zarvo {

// The head of an HTTP/1.x request as the loopback server reads it: the request line and the
// header fields, bounded in size and in number of fields. Grammar (CRLF or a bare LF ends a
// line):
//
//   head         = request-line *( field-line ) empty-line
//   request-line = method SP target SP "HTTP/1." DIGIT
//   field-line   = name ":" OWS value OWS
//
// Linear in the size of the head; nothing is read past `maxBytes`.
struct HttpRequestHead {
    static constexpr std::size_t maxBytes = 16 * 1024;
    static constexpr std::size_t maxFields = 64;

    std::string method;
    std::string target;  // as sent: a path and query
    std::vector<std::pair<std::string, std::string>> fields;

    // The path of the target, without its query.
    std::string_view path() const;

    // Where a head that arrives in pieces stands.
    enum class Progress {
        incomplete,  // more bytes to come
        complete,    // `bytes` holds a whole head (and maybe more)
        tooLarge,    // no end within maxBytes
    };
    static Progress progress(std::string_view bytes);
    // The length of the head at the start of `bytes` (its empty line included), or 0.
    static std::size_t length(std::string_view bytes);

    // The head, or the status that refuses it: 400 (malformed or cut short), 414 (a request
    // line longer than the bound), 431 (too many fields, or fields past the bound), 505 (not
    // HTTP/1.x).
    static std::variant<HttpRequestHead, int> parse(std::string_view head);
};

}  // namespace zarvo
