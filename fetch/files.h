// Files that are read once, at the start.
#ifndef TARVOLIN_FETCH_FILES_H
#define TARVOLIN_FETCH_FILES_H

#include <cstddef>
#include <optional>
#include <string>

namespace fetch {

// The content of a file of at most `limit` bytes; nothing, with errno, when it cannot be read (EFBIG when it
// is longer). The file is closed again.
[[nodiscard]] std::optional<std::string> read_file(const std::string& path, size_t limit);

}  // namespace fetch

#endif
