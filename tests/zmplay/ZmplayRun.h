#pragma once

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <spawn.h>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace zarvo::test {

struct ZmplayResult {
    int status = -1;  // the exit status, or -1 when zmplay did not exit normally
    std::string out;
    std::string err;

    // The last line of standard output (without its newline).
    std::string lastLine() const {
        std::string text = out;
        if (!text.empty() && text.back() == '\n') {
            text.pop_back();
        }
        return text.substr(text.rfind('\n') == std::string::npos ? 0 : text.rfind('\n') + 1);
    }
};

// Runs the zmplay binary with `arguments` on the application home `home` (ZM_HOME).
inline ZmplayResult runZmplay(const std::vector<std::string>& arguments,
                              const std::filesystem::path& home) {
    namespace fs = std::filesystem;
    fs::path outPath = home.parent_path() / (home.filename().string() + ".out");
    fs::path errPath = home.parent_path() / (home.filename().string() + ".err");

    std::vector<std::string> words{ZMPLAY_PATH};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (auto& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);

    std::vector<std::string> environment{"ZM_HOME=" + home.string()};
    for (char** entry = environ; *entry != nullptr; ++entry) {
        if (std::string(*entry).rfind("ZM_HOME=", 0) != 0) {
            environment.emplace_back(*entry);
        }
    }
    std::vector<char*> envp;
    for (auto& entry : environment) {
        envp.push_back(entry.data());
    }
    envp.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0600);
    posix_spawn_file_actions_addopen(&actions, 2, errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0600);
    ZmplayResult result;
    pid_t pid = 0;
    if (posix_spawn(&pid, ZMPLAY_PATH, &actions, nullptr, argv.data(), envp.data()) == 0) {
        int status = 0;
        waitpid(pid, &status, 0);
        result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    posix_spawn_file_actions_destroy(&actions);

    auto slurp = [](const fs::path& path) {
        std::ifstream file(path);
        std::stringstream text;
        text << file.rdbuf();
        return text.str();
    };
    result.out = slurp(outPath);
    result.err = slurp(errPath);
    fs::remove(outPath);
    fs::remove(errPath);
    return result;
}

}  // namespace zarvo::test
