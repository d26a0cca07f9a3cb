#include "zarvo/source/URLByReplacingLastPathComponent.h"

namespace zarvo {

Url URLByReplacingLastPathComponent(const Url& url, std::string_view component) {
    return url.deletingLastPathComponent().appendingPathComponent(component);
}

}  // namespace zarvo
