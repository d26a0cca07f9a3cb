#pragma once

#include <compare>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "zarvo/platform/Export.h"

namespace zarvo {

/// A URL reference (RFC 3986): absolute ("https://h/p?q", "file:///x", "skd://id") or relative
/// ("Library/media/a.movpkg", "../b.m3u8", "?x=1"). Stored as its text; the accessors parse it.
/// Texts that are not URL references (spaces, control characters, bad percent escapes, an
/// invalid scheme or port) fail to parse.
class ZARVO_EXPORT Url {
public:
    /// The URL reference `text`; nothing for an empty text or one that is not a URL reference.
    static std::optional<Url> parse(std::string_view text);
    /// Parses `text` and resolves it against `base` (RFC 3986 section 5).
    static std::optional<Url> parse(std::string_view text, const Url& base);
    /// A file URL for an absolute filesystem path (percent-encoded as needed); a directory URL
    /// ends in "/". A relative path is taken from the current directory.
    static Url fileUrl(std::string_view path, bool isDirectory = false);

    /// The text of the reference, as it was given.
    const std::string& absoluteString() const { return text_; }
    bool isAbsolute() const;  ///< has a scheme
    /// Whether the scheme is "file".
    bool isFileUrl() const;
    bool isHttp() const;  ///< http or https

    std::string scheme() const;  ///< lower-cased; empty for a relative reference
    /// The percent-decoded host (an IPv6 address without its brackets); nothing when empty.
    std::optional<std::string> host() const;
    /// The port; nothing without one.
    std::optional<int> port() const;
    /// The percent-decoded user of the authority's user info; nothing without user info.
    std::optional<std::string> user() const;
    /// The percent-decoded password (after the user's ":"); nothing without one.
    std::optional<std::string> password() const;
    /// The percent-encoded path ("" when there is none).
    std::string path() const;
    /// The percent-decoded path (for file URLs: the filesystem path), without a trailing "/"
    /// unless it is the root.
    std::string decodedPath() const;
    std::optional<std::string> query() const;     ///< percent-encoded, without "?"
    std::optional<std::string> fragment() const;  ///< without "#"

    std::vector<std::string> pathComponents() const;  ///< decoded; "/" first for absolute paths
    std::string lastPathComponent() const;            ///< decoded; "" when the path is empty
    /// The text after the last "." of lastPathComponent(); "" when there is none (or the
    /// component starts or ends with the dot).
    std::string pathExtension() const;

    /// The URL with its last path component removed (keeping the trailing "/"); query and
    /// fragment stay, so "http://h/a/b.m3u8?t=1" gives "http://h/a/?t=1" and a path appended
    /// to that keeps the query (a CDN token reaches the sibling playlists).
    Url deletingLastPathComponent() const;
    /// The URL with `component` (percent-encoded as a path segment) appended after a "/";
    /// query and fragment are kept after the new path. A "/" inside `component` separates
    /// segments ("Library/media/a.movpkg" appends three).
    Url appendingPathComponent(std::string_view component, bool isDirectory = false) const;
    /// This reference resolved against `base`.
    Url resolvedAgainst(const Url& base) const;

    /// Compares the texts.
    auto operator<=>(const Url&) const = default;

private:
    explicit Url(std::string text) : text_(std::move(text)) {}
    std::string text_;
};

}  // namespace zarvo
