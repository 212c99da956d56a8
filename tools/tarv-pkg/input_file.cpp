#include "tools/tarv-pkg/input_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

#include "base/retry.h"
#include "package/crc32.h"
#include "tools/common/interruption.h"

namespace tools::tarv_pkg {

namespace {
constexpr size_t kPiece = 65536;  // bytes read and passed on at a time
}

// O_NONBLOCK lets the open of a named pipe without a writer return; for regular files it means nothing.
input_file::input_file(const std::string& path)
    : path_(path), fd_(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)) {
  const bool opened = fd_.valid() && fstat(fd_.get(), &opened_as_) == 0;
  if (!opened) throw system_refusal("cannot open " + in_quotes(path));
  const bool regular = S_ISREG(opened_as_.st_mode);
  if (!regular) throw refusal(in_quotes(path) + " is not a regular file; give the name of one");
}

bool input_file::has_name(const std::string& path) const {
  struct stat other = {};
  return lstat(path.c_str(), &other) == 0 && opened_as_.st_dev == other.st_dev &&
         opened_as_.st_ino == other.st_ino;
}

size_t input_file::read_some(void* data, size_t length) {
  heed_interruptions();
  const ssize_t n = retry_interrupted([&] { return ::read(fd_.get(), data, length); });
  if (n < 0) throw system_refusal("cannot read " + in_quotes(path_));
  return static_cast<size_t>(n);
}

refusal input_file::changed(const char* how) const {
  return refusal(in_quotes(path_) + ' ' + how + " while it was read; let it be completed first");
}

void input_file::read(void* data, size_t length) {
  auto* out = static_cast<char*>(data);
  while (length > 0) {
    const size_t n = read_some(out, length);
    if (n == 0) throw changed("became shorter");
    out += n;
    length -= n;
  }
}

void input_file::seek(uint64_t offset) {
  const auto wanted = static_cast<off_t>(offset);
  if (lseek(fd_.get(), wanted, SEEK_SET) != wanted) throw system_refusal("cannot read " + in_quotes(path_));
}

void input_file::expect_end() {
  char next;
  if (read_some(&next, 1) == 0) return;
  throw changed("became longer");
}

// In pieces, so that an image of any size takes the same memory.
uint32_t pass_data(input_file& file, uint64_t length,
                   const std::function<void(const void* data, size_t length)>& take) {
  std::vector<char> piece(kPiece);
  uint32_t crc = kCrcStart;
  while (length > 0) {
    const auto n = static_cast<size_t>(std::min<uint64_t>(length, kPiece));
    file.read(piece.data(), n);
    crc = crc32_update(crc, piece.data(), n);
    take(piece.data(), n);
    length -= n;
  }
  return crc;
}

}  // namespace tools::tarv_pkg
