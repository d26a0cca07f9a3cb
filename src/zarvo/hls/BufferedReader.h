#pragma once

#include <optional>
#include <string>

namespace zarvo {

// A source of text lines for the playlist parser. Lines never contain the separator that
// ended them; an absent line means the end of the input.
class BufferedReader {
public:
    virtual ~BufferedReader() = default;
    virtual void close() = 0;
    virtual std::optional<std::string> readLine() = 0;
};

}  // namespace zarvo
