#include "zarvo/platform/UrlError.h"

namespace zarvo {
namespace {

const char* describe(UrlError code) {
    switch (code) {
        case UrlError::cancelled:
            return "cancelled";
        case UrlError::badUrl:
            return "The URL is not valid.";
        case UrlError::timedOut:
            return "The request timed out.";
        case UrlError::unsupportedUrl:
            return "The URL's scheme is not supported.";
        case UrlError::cannotFindHost:
            return "No server with that host name could be found.";
        case UrlError::cannotConnectToHost:
            return "The connection to the server could not be made.";
        case UrlError::networkConnectionLost:
            return "The network connection was lost.";
        case UrlError::httpTooManyRedirects:
            return "The request was redirected too many times.";
        case UrlError::badServerResponse:
            return "The server's response could not be understood.";
        case UrlError::cannotDecodeContentData:
            return "The response body could not be decoded.";
        case UrlError::dataLengthExceedsMaximum:
            return "The response body is longer than allowed.";
        case UrlError::secureConnectionFailed:
            return "A secure connection to the server could not be made.";
        case UrlError::serverCertificateUntrusted:
            return "The server's certificate is not trusted.";
        case UrlError::cannotWriteToFile:
            return "The data could not be written to a file.";
        case UrlError::unknown:
            break;
    }
    return "An unknown network error occurred.";
}

}  // namespace

Error makeUrlError(UrlError code, const std::string& url, const std::string& detail) {
    Error::UserInfo userInfo{{Error::localizedDescriptionKey, describe(code)}};
    if (!url.empty()) {
        userInfo[failingUrlStringKey] = url;
    }
    if (!detail.empty()) {
        userInfo[urlErrorDetailKey] = detail;
    }
    return Error(urlErrorDomain, static_cast<long>(code), std::move(userInfo));
}

bool isUrlError(const Error& error, UrlError code) {
    return error.domain() == urlErrorDomain && error.code() == static_cast<long>(code);
}

}  // namespace zarvo
