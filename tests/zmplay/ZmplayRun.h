#pragma once

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <sys/wait.h>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "support/TempHome.h"

namespace zarvo::test {

struct ZmplayResult {
    int status = -1;  // the exit status, or -1 when zmplay did not exit normally
    std::string out;
    std::string err;

    // The exit status with the standard output, to compare both at once.
    std::pair<int, std::string> exit() const { return {status, out}; }
    std::string lastLine() const {
        std::string text = out.ends_with('\n') ? out.substr(0, out.size() - 1) : out;
        return text.substr(text.find_last_of('\n') + 1);
    }
};

inline std::string shellQuoted(const std::string& word) {
    std::string quoted = "'";
    for (char c : word) {
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return quoted + "'";
}

using Exit = std::pair<int, std::string>;

// A fresh application home for each test, with zmplay run on it (ZM_HOME).
template <typename Base = ::testing::Test>
class ZmplayTest : public Base {
protected:
    ZmplayResult run(const std::vector<std::string>& arguments) {
        const std::string errPath = home.path().string() + ".err";
        std::string command = "ZM_HOME=" + shellQuoted(home.path().string()) + " " + ZMPLAY_PATH;
        for (const auto& argument : arguments) {
            command += " " + shellQuoted(argument);
        }
        command += " 2>" + shellQuoted(errPath);

        ZmplayResult result;
        if (FILE* pipe = ::popen(command.c_str(), "r")) {
            char buffer[4096];
            while (std::size_t read = std::fread(buffer, 1, sizeof buffer, pipe)) {
                result.out.append(buffer, read);
            }
            int status = ::pclose(pipe);
            result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        }
        std::ifstream err(errPath);
        result.err.assign(std::istreambuf_iterator<char>(err), {});
        std::filesystem::remove(errPath);
        return result;
    }
    TempHome home;
};

}  // namespace zarvo::test
