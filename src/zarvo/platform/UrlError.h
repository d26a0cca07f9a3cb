#pragma once

#include <string>

#include "zarvo/platform/Error.h"

namespace zarvo {

// Transport failures of UrlSession, in the domain "NSURLErrorDomain" with the platform's codes.
// Which failure gives which code:
// - cancelled: the task was cancelled (or its session invalidated before it started);
// - timedOut: no byte moved for the request's time-out, the connection took longer than
//   that to open, or the whole transfer outlasted the configuration's resource time-out;
// - unsupportedUrl: a scheme other than http/https, also when a redirect leads to one;
// - badUrl: an http(s) URL without a host;
// - cannotFindHost / cannotConnectToHost: the name did not resolve / the connection was
//   refused or could not be made;
// - networkConnectionLost: the peer closed or reset the connection, before any byte of a
//   response or in the middle of a body;
// - badServerResponse: bytes arrived that are not an HTTP response;
// - httpTooManyRedirects, cannotDecodeContentData: more than 16 redirects / a body that does
//   not decode from its Content-Encoding;
// - dataLengthExceedsMaximum: a body longer than the request's maximumBodyLength;
// - secureConnectionFailed / serverCertificateUntrusted: the TLS handshake failed / the
//   server's certificate did not verify.
// Any HTTP status, 4xx and 5xx included, is a response and not an error.
enum class UrlError : long {
    unknown = -1,
    cancelled = -999,
    badUrl = -1000,
    timedOut = -1001,
    unsupportedUrl = -1002,
    cannotFindHost = -1003,
    cannotConnectToHost = -1004,
    networkConnectionLost = -1005,
    httpTooManyRedirects = -1007,
    badServerResponse = -1011,
    cannotDecodeContentData = -1016,
    dataLengthExceedsMaximum = -1103,
    secureConnectionFailed = -1200,
    serverCertificateUntrusted = -1202,
    cannotWriteToFile = -3003,
};

inline constexpr const char* urlErrorDomain = "NSURLErrorDomain";
// User-info key of the URL whose transfer failed.
inline constexpr const char* failingUrlStringKey = "NSErrorFailingURLStringKey";
// User-info key of the transport's own account of the failure, when there is one.
inline constexpr const char* urlErrorDetailKey = "NSDebugDescription";

// An Error in urlErrorDomain with the given code and a description naming the failure;
// `url` (if not empty) is recorded under "NSErrorFailingURLStringKey".
Error makeUrlError(UrlError code, const std::string& url = {}, const std::string& detail = {});
bool isUrlError(const Error& error, UrlError code);

}  // namespace zarvo
