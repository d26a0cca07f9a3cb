#pragma once

#include <functional>
#include <string>
#include <vector>

namespace zarvo::zmplay {

// A zmplay sub-command. Each command's file registers itself with a static Command::Registration.
struct Command {
    using Run = std::function<int(const std::vector<std::string>& arguments)>;

    std::string name;
    std::string usage;  // one line after "zmplay ", for example "playlist <file|url> [--json]"
    std::string summary;
    Run run;

    struct Registration {
        explicit Registration(Command command);
    };

    static const std::vector<Command>& all();
};

}  // namespace zarvo::zmplay
