// A regular file that is read piece by piece.
#ifndef TARVOLIN_TOOLS_TARV_PKG_INPUT_FILE_H
#define TARVOLIN_TOOLS_TARV_PKG_INPUT_FILE_H

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "base/unique_fd.h"
#include "tools/common/refusal.h"

namespace tools::tarv_pkg {

// Every member throws a refusal, naming the file, when it cannot do what it promises.
class input_file {
 public:
  // Opens `path`; anything but a regular file is refused, and a named pipe does not block.
  explicit input_file(const std::string& path);

  const std::string& path() const { return path_; }
  // Bytes in the file when it was opened.
  uint64_t size() const { return static_cast<uint64_t>(opened_as_.st_size); }
  // True when `path` is a name of this very file.
  bool has_name(const std::string& path) const;

  // Reads exactly `length` bytes: a file that ends before them has changed since it was opened. Throws an
  // interruption when a signal has asked the tool to end.
  void read(void* data, size_t length);
  // Goes on reading at `offset`.
  void seek(uint64_t offset);
  // Makes sure that nothing follows the bytes read.
  void expect_end();

 private:
  size_t read_some(void* data, size_t length);
  [[nodiscard]] refusal changed(const char* how) const;

  std::string path_;
  unique_fd fd_;
  struct stat opened_as_ = {};
};

// Passes the next `length` bytes of `file` to `take`, piece by piece, and returns their package CRC.
[[nodiscard]] uint32_t pass_data(input_file& file, uint64_t length,
                                 const std::function<void(const void* data, size_t length)>& take);

}  // namespace tools::tarv_pkg

#endif
