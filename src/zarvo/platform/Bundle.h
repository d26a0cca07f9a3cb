#pragma once

#include <string>

#include "zarvo/platform/Export.h"

namespace zarvo {

/// Identity and versions of a program: the host declares its own once (setMain); the SDK's
/// comes from the build.
struct ZARVO_EXPORT Bundle {
    std::string identifier;    ///< for example "com.example.player"
    std::string shortVersion;  ///< marketing version, "1.2.3"
    std::string buildVersion;  ///< build number, "45"

    /// The host's bundle. Until the host sets it: identifier = the executable's name, versions
    /// "0".
    static Bundle main();
    /// Declares the host's bundle.
    static void setMain(Bundle bundle);
    /// Forgets the declared bundle, so main() gives the defaults again.
    static void resetMain();
    /// The SDK: identifier "com.zarvo.ZarvoMediaPlayer", versions from the build.
    static Bundle sdk();
};

}  // namespace zarvo
