#pragma once

#include <memory>

#include <curl/curl.h>

namespace zarvo {

// Owning wrappers for libcurl's handles.
struct CurlEasyDeleter {
    void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
};
struct CurlMultiDeleter {
    void operator()(CURLM* handle) const { curl_multi_cleanup(handle); }
};
struct CurlSlistDeleter {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};

using CurlEasy = std::unique_ptr<CURL, CurlEasyDeleter>;
using CurlMulti = std::unique_ptr<CURLM, CurlMultiDeleter>;
using CurlSlist = std::unique_ptr<curl_slist, CurlSlistDeleter>;

}  // namespace zarvo
