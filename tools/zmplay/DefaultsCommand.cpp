// zmplay defaults: reads and changes the user defaults of the application home.
#include <algorithm>
#include <cstdio>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "zarvo/platform/UserDefaults.h"

#include "zmplay/Command.h"

namespace zarvo::zmplay::defaults_command {
namespace {

constexpr const char* usage = "defaults read [KEY] | write KEY VALUE | delete KEY";

// A value as text: strings (and numbers) as they are, data as "<hex bytes>".
std::optional<std::string> displayValue(const UserDefaults& defaults, const std::string& key) {
    if (auto text = defaults.string(key)) {
        return text;
    }
    if (auto bytes = defaults.data(key)) {
        std::string hex = "<";
        char digits[3];
        for (unsigned char byte : *bytes) {
            std::snprintf(digits, sizeof digits, "%02x", byte);
            hex += digits;
        }
        return hex + ">";
    }
    return std::nullopt;
}

int fail(const std::string& message) {
    std::cerr << "zmplay defaults: " << message << "\n";
    return 1;
}

int readDefaults(UserDefaults& defaults, const std::vector<std::string>& arguments) {
    if (arguments.size() == 1) {
        std::vector<std::string> keys = defaults.keys();
        std::sort(keys.begin(), keys.end());
        for (const auto& key : keys) {
            std::cout << key << " = " << displayValue(defaults, key).value_or("") << "\n";
        }
        return 0;
    }
    const std::string& key = arguments[1];
    std::optional<std::string> value = displayValue(defaults, key);
    if (!value) {
        return fail("the default " + key + " does not exist");
    }
    std::cout << *value << "\n";
    return 0;
}

int runDefaults(const std::vector<std::string>& arguments) {
    const std::string verb = arguments.empty() ? "" : arguments[0];
    bool wellFormed = (verb == "read" && arguments.size() <= 2) ||
                      (verb == "write" && arguments.size() == 3) ||
                      (verb == "delete" && arguments.size() == 2);
    if (!wellFormed) {
        std::cerr << "usage: zmplay " << usage << "\n";
        return 2;
    }
    std::shared_ptr<UserDefaults> defaults = UserDefaults::standard();
    if (!defaults) {
        return fail("the user defaults cannot be opened");
    }
    if (verb == "read") {
        return readDefaults(*defaults, arguments);
    }
    const std::string& key = arguments[1];
    if (verb == "write") {
        if (!defaults->setString(key, arguments[2])) {
            return fail("cannot write " + key + "; the old value is kept");
        }
        return 0;
    }
    if (!defaults->hasValue(key)) {
        return fail("the default " + key + " does not exist; nothing was changed");
    }
    if (!defaults->removeObject(key)) {
        return fail("cannot delete " + key + "; the value is kept");
    }
    return 0;
}

const Command::Registration registration{
    Command{"defaults", usage,
            "read, write or delete a user default of the application home (ZM_HOME)", runDefaults}};

}  // namespace
}  // namespace zarvo::zmplay::defaults_command
