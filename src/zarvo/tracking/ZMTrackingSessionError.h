#pragma once

#include <optional>
#include <string>

#include "zarvo/platform/Error.h"
#include "zarvo/platform/Export.h"

namespace zarvo {

/// Why a tracking beacon failed. It is not an Error: read it through kind(), text(),
/// statusCode() and error(). Transport failures and 5xx answers are retried; the other kinds
/// end the session (isRetryable()). The error of a connectionError is the URL session's
/// ("NSURLErrorDomain"); that of an otherError is of the domain "ZMTrackingSessionErrorDomain",
/// code 1, with the text of the exception that stopped the request's building.
class ZARVO_EXPORT ZMTrackingSessionError {
public:
    /// The kinds of failure, with the payload each carries.
    enum class Kind {
        wrongEndpointUrl,            ///< text: the endpoint, or the URL with the path appended
        unableToCreateUrlWithQuery,  ///< text: the printed list of query items
        connectionError,             ///< error: the transport failure
        serverError,                 ///< statusCode and text: a status outside 200-299, the body
        otherError,                  ///< error: anything else that failed while building
    };

    /// The endpoint is not a URL (or empty), or the beacon's path cannot be added to it.
    static ZMTrackingSessionError wrongEndpointUrl(std::string text) {
        return {Kind::wrongEndpointUrl, std::move(text), 0, std::nullopt};
    }
    /// The query items cannot make a URL.
    static ZMTrackingSessionError unableToCreateUrlWithQuery(std::string text) {
        return {Kind::unableToCreateUrlWithQuery, std::move(text), 0, std::nullopt};
    }
    /// The request failed in transport.
    static ZMTrackingSessionError connectionError(Error error) {
        return {Kind::connectionError, {}, 0, std::move(error)};
    }
    /// The service answered with a status outside 200-299. `statusCode` is 0 for a response
    /// that is not HTTP; `body` is empty when not UTF-8.
    static ZMTrackingSessionError serverError(int statusCode, std::string body) {
        return {Kind::serverError, std::move(body), statusCode, std::nullopt};
    }
    /// Anything else failed while the request was built.
    static ZMTrackingSessionError otherError(Error error) {
        return {Kind::otherError, {}, 0, std::move(error)};
    }

    /// The kind of failure.
    Kind kind() const { return kind_; }
    /// The text payload (wrongEndpointUrl, unableToCreateUrlWithQuery, serverError's body).
    const std::string& text() const { return text_; }
    /// The HTTP status of a serverError; 0 for the other kinds.
    int statusCode() const { return statusCode_; }
    /// The error payload (connectionError, otherError).
    const std::optional<Error>& error() const { return error_; }

    /// True for failures worth sending again: transport failures and 5xx answers.
    bool isRetryable() const;

    /// The kind's name with its payload, for example `serverError(503, "busy")` or
    /// `wrongEndpointUrl("")`; an error payload is printed with Error::description().
    std::string description() const;

    /// Equal kind and payloads.
    bool operator==(const ZMTrackingSessionError&) const = default;

private:
    ZMTrackingSessionError(Kind kind, std::string text, int statusCode, std::optional<Error> error)
        : kind_(kind), text_(std::move(text)), statusCode_(statusCode), error_(std::move(error)) {}

    Kind kind_;
    std::string text_;
    int statusCode_;
    std::optional<Error> error_;
};

}  // namespace zarvo
