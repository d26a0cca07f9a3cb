// zmplay: the command-line player and inspector of the SDK.
#include <algorithm>
#include <cstdio>
#include <iostream>
#include <string>
#include <vector>

#include "zmplay/Command.h"

namespace zarvo::zmplay {
namespace {

std::vector<Command>& registry() {
    static std::vector<Command> commands;
    return commands;
}

void printHelp(std::ostream& out) {
    out << "usage: zmplay <command> [arguments]\n\ncommands:\n";
    std::vector<Command> commands = Command::all();
    std::sort(commands.begin(), commands.end(),
              [](const Command& a, const Command& b) { return a.name < b.name; });
    for (const auto& command : commands) {
        out << "  zmplay " << command.usage << "\n      " << command.summary << "\n";
    }
}

}  // namespace

Command::Registration::Registration(Command command) {
    registry().push_back(std::move(command));
}

const std::vector<Command>& Command::all() {
    return registry();
}

}  // namespace zarvo::zmplay

int main(int argc, char** argv) {
    using zarvo::zmplay::Command;
    std::vector<std::string> arguments(argv + 1, argv + argc);
    if (arguments.empty() || arguments[0] == "--help" || arguments[0] == "-h" ||
        arguments[0] == "help") {
        zarvo::zmplay::printHelp(arguments.empty() ? std::cerr : std::cout);
        return arguments.empty() ? 2 : 0;
    }
    for (const auto& command : Command::all()) {
        if (command.name == arguments[0]) {
            int status = command.run({arguments.begin() + 1, arguments.end()});
            std::fflush(stdout);
            return status;
        }
    }
    std::cerr << "zmplay: unknown command '" << arguments[0] << "'\n";
    zarvo::zmplay::printHelp(std::cerr);
    return 2;
}
