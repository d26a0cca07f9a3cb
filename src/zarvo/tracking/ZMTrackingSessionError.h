#pragma once

#include <optional>
#include <string>

#include "zarvo/platform/Error.h"
#include "zarvo/platform/Export.h"

namespace zarvo {

// Why a tracking beacon failed.
class ZARVO_EXPORT ZMTrackingSessionError {
public:
    enum class Kind {
        wrongEndpointUrl,            // text: the endpoint, or the URL with the path appended
        unableToCreateUrlWithQuery,  // text: the printed list of query items
        connectionError,             // error: the transport failure
        serverError,                 // statusCode and text: a status outside 200-299, the body
        otherError,                  // error: anything else that failed while building
    };

    static ZMTrackingSessionError wrongEndpointUrl(std::string text) {
        return {Kind::wrongEndpointUrl, std::move(text), 0, std::nullopt};
    }
    static ZMTrackingSessionError unableToCreateUrlWithQuery(std::string text) {
        return {Kind::unableToCreateUrlWithQuery, std::move(text), 0, std::nullopt};
    }
    static ZMTrackingSessionError connectionError(Error error) {
        return {Kind::connectionError, {}, 0, std::move(error)};
    }
    // `statusCode` is 0 for a response that is not HTTP; `body` is empty when not UTF-8.
    static ZMTrackingSessionError serverError(int statusCode, std::string body) {
        return {Kind::serverError, std::move(body), statusCode, std::nullopt};
    }
    static ZMTrackingSessionError otherError(Error error) {
        return {Kind::otherError, {}, 0, std::move(error)};
    }

    Kind kind() const { return kind_; }
    // The text payload (wrongEndpointUrl, unableToCreateUrlWithQuery, serverError's body).
    const std::string& text() const { return text_; }
    int statusCode() const { return statusCode_; }
    // The error payload (connectionError, otherError).
    const std::optional<Error>& error() const { return error_; }

    // True for failures worth sending again: transport failures and 5xx answers.
    bool isRetryable() const;

    // For example "serverError(503, \"busy\")".
    std::string description() const;

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
