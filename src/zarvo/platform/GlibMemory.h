#pragma once

#include <memory>

#include <glib.h>

namespace zarvo {

// Owners of what GLib hands over with "transfer full": memory freed with g_free, errors.
struct GFreeDeleter {
    void operator()(gpointer memory) const { g_free(memory); }
};
using GCharPtr = std::unique_ptr<gchar, GFreeDeleter>;

struct GErrorDeleter {
    void operator()(GError* error) const {
        if (error != nullptr) {
            g_error_free(error);
        }
    }
};
using GErrorPtr = std::unique_ptr<GError, GErrorDeleter>;

}  // namespace zarvo
