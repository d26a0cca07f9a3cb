#pragma once

#include <array>
#include <cstdio>
#include <string>

namespace zarvo::test {

// Runs a shell command; its standard output and error together.
inline std::string commandOutput(const std::string& command) {
    std::string output;
    if (FILE* pipe = popen((command + " 2>&1").c_str(), "r")) {
        std::array<char, 4096> buffer{};
        while (std::size_t n = std::fread(buffer.data(), 1, buffer.size(), pipe)) {
            output.append(buffer.data(), n);
        }
        pclose(pipe);
    }
    return output;
}

}  // namespace zarvo::test
