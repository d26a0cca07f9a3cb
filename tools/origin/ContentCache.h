#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <variant>

#include "zarvo/platform/Error.h"

namespace zarvo::origin {

// Content made once by a tool and kept in a cache folder named after a hash of its recipe, so
// that a changed recipe makes new content and an unchanged one is made only once.
class ContentCache {
public:
    using Generate = std::function<std::optional<Error>(const std::filesystem::path& directory)>;

    // The folder `root`/`name`, made by `generate` first when it has no file `marker`. Processes
    // and threads that prepare the same folder at once wait for each other, and only one of them
    // generates. The content is made beside the folder and renamed into place when complete, so
    // a crash never leaves a half-made folder under the final name.
    static std::variant<std::filesystem::path, Error> prepare(const std::filesystem::path& root,
                                                              const std::string& name,
                                                              const std::string& marker,
                                                              const Generate& generate);

    // The content that `recipe` describes, in a folder named `prefix` and the recipe's hash
    // under `cacheRoot` (the default root when empty), made by `generate` on first use.
    template <class Content>
    static std::variant<Content, Error> prepareContent(const std::filesystem::path& cacheRoot,
                                                       const std::string& prefix,
                                                       const std::string& recipe,
                                                       const Generate& generate) {
        auto prepared = prepare(cacheRoot.empty() ? defaultRoot() : cacheRoot,
                                prefix + hash(recipe), "recipe.txt", generate);
        if (auto* error = std::get_if<Error>(&prepared)) {
            return *error;
        }
        return Content(std::get<std::filesystem::path>(prepared));
    }

    // Hex FNV-1a hash of `text`: stable across runs and builds.
    static std::string hash(const std::string& text);
    // $ZM_ORIGIN_CACHE, else $XDG_CACHE_HOME/zarvo/origin, else ~/.cache/zarvo/origin.
    static std::filesystem::path defaultRoot();
};

}  // namespace zarvo::origin
