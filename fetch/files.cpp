#include "fetch/files.h"

#include <fcntl.h>
#include <unistd.h>

#include "base/retry.h"
#include "base/unique_fd.h"

namespace fetch {

std::optional<std::string> read_file(const std::string& path, size_t limit) {
  const unique_fd file(retry_interrupted([&] { return open(path.c_str(), O_RDONLY | O_CLOEXEC); }));
  if (!file.valid()) return std::nullopt;
  std::string content;
  for (;;) {
    char piece[4096];
    const ssize_t n = retry_interrupted([&] { return read(file.get(), piece, sizeof piece); });
    if (n == 0) return content;
    if (n < 0) return std::nullopt;
    content.append(piece, static_cast<size_t>(n));
    if (content.size() <= limit) continue;
    errno = EFBIG;
    return std::nullopt;
  }
}

}  // namespace fetch
