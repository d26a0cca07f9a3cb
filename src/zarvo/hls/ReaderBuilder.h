#pragma once

namespace zarvo {

// Names the family of line readers (FileBufferedReader, StringBufferedReader,
// URLBufferedReader); it has no state and no operations.
class ReaderBuilder {};

}  // namespace zarvo
