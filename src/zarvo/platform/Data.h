#pragma once

#include <string>

namespace zarvo {

// A byte buffer. Bytes travel in std::string so that text and binary bodies share one type.
using Data = std::string;

}  // namespace zarvo
