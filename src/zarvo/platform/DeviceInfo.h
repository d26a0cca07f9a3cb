#pragma once

#include <string>

namespace zarvo {

// Facts about the machine.
struct DeviceInfo {
    static std::string machine();     // uname machine, "x86_64"
    static std::string systemName();  // /etc/os-release NAME, "Debian GNU/Linux"; "Linux" if none
    static std::string systemVersion();  // /etc/os-release VERSION_ID, "12"; uname release if none
    static std::string name();           // host name
    static std::string model();          // "PC"
    // A UUID text made once per host application and kept in the standard user defaults under
    // "ZMIdentifierForVendor".
    static std::string identifierForVendor();
};

}  // namespace zarvo
