#include "zarvo/media/UrlAsset.h"

#include <utility>

namespace zarvo {

std::shared_ptr<UrlAsset> UrlAsset::make(Url url, Options options) {
    return std::make_shared<UrlAsset>(std::move(url), std::move(options));
}

UrlAsset::UrlAsset(Url url, Options options) : url_(std::move(url)), options_(std::move(options)) {}

}  // namespace zarvo
