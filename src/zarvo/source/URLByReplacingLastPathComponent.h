#pragma once

#include <string_view>

#include "zarvo/platform/Url.h"

namespace zarvo {

// `url` with its last path component removed and `component` appended in its place.
Url URLByReplacingLastPathComponent(const Url& url, std::string_view component);

}  // namespace zarvo
