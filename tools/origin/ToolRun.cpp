#include "origin/ToolRun.h"

#include <fstream>
#include <sstream>

#include <glib.h>

#include "zarvo/platform/GlibMemory.h"

#include "origin/SampleContent.h"

namespace zarvo::origin {

namespace fs = std::filesystem;

namespace {

std::string tail(const fs::path& file, std::size_t bytes) {
    std::ifstream in(file, std::ios::binary);
    std::stringstream buffer;
    buffer << in.rdbuf();
    const std::string text = buffer.str();
    return text.size() > bytes ? text.substr(text.size() - bytes) : text;
}

}  // namespace

Error contentError(const std::string& description) {
    return Error::withDescription(SampleContent::errorDomain, 1, description);
}

std::optional<Error> runTool(const std::vector<std::string>& args, const fs::path& log) {
    std::vector<char*> argv;
    for (const auto& arg : args) {
        argv.push_back(const_cast<char*>(arg.c_str()));
    }
    argv.push_back(nullptr);
    gchar* out = nullptr;
    gchar* err = nullptr;
    gint status = 0;
    GError* spawnError = nullptr;
    const bool ran = g_spawn_sync(nullptr, argv.data(), nullptr, G_SPAWN_SEARCH_PATH, nullptr,
                                  nullptr, &out, &err, &status, &spawnError);
    const GCharPtr output(out);
    const GCharPtr errors(err);
    const GErrorPtr error(spawnError);
    if (!ran) {
        if (g_error_matches(error.get(), G_SPAWN_ERROR, G_SPAWN_ERROR_NOENT)) {
            return contentError(args[0] + " is not installed (install the ffmpeg package).");
        }
        return contentError("Cannot start " + args[0] + ": " + error->message);
    }
    std::ofstream(log, std::ios::binary | std::ios::app)
        << (output ? output.get() : "") << (errors ? errors.get() : "");
    if (!g_spawn_check_wait_status(status, nullptr)) {
        return contentError(args[0] + " failed: " + tail(log, 600));
    }
    return std::nullopt;
}

bool writeTextFile(const fs::path& path, const std::string& contents) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << contents;
    return static_cast<bool>(out.flush());
}

}  // namespace zarvo::origin
