#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "zarvo/platform/Url.h"
#include "zarvo/platform/UrlQueryItem.h"

namespace zarvo {

// The parts of a URL, editable, and put back together with url() / string().
// Query items are encoded as RFC 3986 query components: unreserved characters and
// "!$'()*,;:@/?" stay as they are; every other byte, "&", "=", "+", "#" and space included,
// is percent-encoded.
class UrlComponents {
public:
    UrlComponents() = default;
    explicit UrlComponents(const Url& url);
    static std::optional<UrlComponents> parse(std::string_view text);

    // User, password and host are decoded; string() encodes them again.
    std::optional<std::string> scheme;
    std::optional<std::string> user;
    std::optional<std::string> password;
    std::optional<std::string> host;
    std::optional<int> port;
    std::string path;                     // percent-encoded
    std::optional<std::string> fragment;  // percent-encoded

    // The query exactly as it will be written (without "?"); nullopt means no query.
    const std::optional<std::string>& percentEncodedQuery() const { return query_; }
    void setPercentEncodedQuery(std::optional<std::string> query) { query_ = std::move(query); }

    // The query as decoded items (a "+" stays a "+"); nullopt when there is no query.
    std::optional<std::vector<UrlQueryItem>> queryItems() const;
    // Encodes the items into the query; nullopt removes it; an empty list leaves "?" alone.
    void setQueryItems(const std::optional<std::vector<UrlQueryItem>>& items);

    // The URL text, or nullopt when the parts cannot form a URL (for example a path not
    // starting with "/" together with a host).
    std::optional<std::string> string() const;
    std::optional<Url> url() const;

    // Encodes one query name or value as above.
    static std::string encodeQueryComponent(std::string_view text);
    static std::string percentDecode(std::string_view text);

private:
    // A decoded authority part with the text it was parsed from, so that an unchanged part is
    // written back exactly as it was.
    struct ParsedText {
        std::string decoded;
        std::string encoded;
    };
    static std::string encodedOrOriginal(const std::string& value,
                                         const std::optional<ParsedText>& parsed,
                                         std::string (*encode)(const std::string&));

    std::optional<std::string> query_;
    std::optional<ParsedText> parsedUser_;
    std::optional<ParsedText> parsedPassword_;
    std::optional<ParsedText> parsedHost_;
};

}  // namespace zarvo
