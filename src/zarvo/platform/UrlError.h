#pragma once

#include <string>

#include "zarvo/platform/Error.h"

namespace zarvo {

// Transport failures of UrlSession, in the domain "NSURLErrorDomain" with the platform's codes.
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
