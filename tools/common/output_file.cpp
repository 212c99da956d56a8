#include "tools/common/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "base/retry.h"
#include "tools/common/refusal.h"

namespace tools {

namespace {

// The mode that open(2) would give a new file; mkostemp gives one that only the owner can read.
mode_t new_file_mode() {
  const mode_t mask = umask(0);
  umask(mask);
  return 0666 & ~mask;
}

}  // namespace

void check_output_path(const std::string& path) {
  if (path.empty()) throw refusal("the name of the output is empty; give one");
  if (path == kStandardOutput) {
    throw refusal("this cannot go to standard output; give a file, ./- for one of that name");
  }
  struct stat found = {};
  if (lstat(path.c_str(), &found) != 0) return;
  if (!S_ISREG(found.st_mode)) throw refusal(in_quotes(path) + " is no regular file; choose another output");
  // The new file only takes the old one's name, which no mode forbids. The superuser may write to any file,
  // so the mode is asked, too.
  const bool writable = (found.st_mode & 0222) != 0 && access(path.c_str(), W_OK) == 0;
  if (!writable) throw refusal(in_quotes(path) + " is read-only; remove it, or choose another output");
}

void check_output_stream(FILE* out) {
  if (isatty(fileno(out)) == 0) return;
  throw refusal("standard output is a terminal; send it into a file or another program");
}

void write_stream(FILE* out, const void* data, size_t length) {
  const bool written = fwrite(data, 1, length, out) == length;
  if (!written) throw system_refusal("cannot write to standard output");
}

// In the same folder, since a name cannot be moved between file systems.
output_file::output_file(const std::string& path)
    : path_(path), temporary_(std::filesystem::path(path).replace_filename(".tarv-tool.XXXXXX").string()) {
  fd_ = mkostemp(temporary_.data(), O_CLOEXEC);
  if (fd_ < 0) throw system_refusal("cannot make a file beside " + in_quotes(path));
}

output_file::~output_file() {
  if (fd_ >= 0) close(fd_);
  if (!temporary_.empty()) unlink(temporary_.c_str());
}

void output_file::write(const void* data, size_t length) {
  const auto* bytes = static_cast<const char*>(data);
  while (length > 0) {
    const ssize_t n = retry_interrupted([&] { return ::write(fd_, bytes, length); });
    if (n < 0) throw system_refusal("cannot write " + in_quotes(path_));
    if (n == 0) throw refusal("cannot write " + in_quotes(path_) + ": no byte was taken");
    bytes += n;
    length -= static_cast<size_t>(n);
  }
}

void output_file::rewrite_start(const void* data, size_t length) {
  if (lseek(fd_, 0, SEEK_SET) != 0) throw system_refusal("cannot write " + in_quotes(path_));
  write(data, length);
}

void output_file::commit() {
  // On disk before it has the name: a crash must not leave the name on half a file.
  bool done = fchmod(fd_, new_file_mode()) == 0 && fsync(fd_) == 0;
  if (!done) throw system_refusal("cannot write " + in_quotes(path_));
  const int fd = fd_;
  fd_ = -1;  // closed, whatever close says
  if (close(fd) != 0) throw system_refusal("cannot write " + in_quotes(path_));
  done = rename(temporary_.c_str(), path_.c_str()) == 0;
  if (!done) throw system_refusal("cannot give a file the name " + in_quotes(path_));
  temporary_.clear();
}

}  // namespace tools
