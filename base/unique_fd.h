// Owner of one file descriptor.
#ifndef TARVOLIN_BASE_UNIQUE_FD_H
#define TARVOLIN_BASE_UNIQUE_FD_H

#include <unistd.h>

#include <cerrno>

// Closes its descriptor when it goes out of scope; errno survives that, so that a caller's error text stays
// true. A close whose failure matters is made by the owner with release(), not left to the destructor.
class unique_fd {
 public:
  explicit unique_fd(int fd = -1) : fd_(fd) {}
  unique_fd(const unique_fd&) = delete;
  unique_fd& operator=(const unique_fd&) = delete;
  ~unique_fd() {
    if (fd_ < 0) return;
    const int saved = errno;
    close(fd_);
    errno = saved;
  }

  int get() const { return fd_; }
  // True when a descriptor is held; false after a failed open.
  bool valid() const { return fd_ >= 0; }
  // Hands the descriptor to the caller, who closes it.
  [[nodiscard]] int release() {
    const int fd = fd_;
    fd_ = -1;
    return fd;
  }

 private:
  int fd_;
};

#endif
