#include "restore/lock.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "base/retry.h"
#include "restore/fault.h"

namespace restore {

namespace {

constexpr size_t kPidRecordSize = 128;

struct flock whole_file() {
  struct flock lock = {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  return lock;
}

int refuse(int fd, const char* path) {
  if (errno != EACCES && errno != EAGAIN) return system_fault("cannot lock %s", path);
  struct flock holder = whole_file();
  if (fcntl(fd, F_GETLK, &holder) != 0 || holder.l_type == F_UNLCK) holder.l_pid = 0;
  return fault(
      "an updater or another restore runs: process %d has the lock on %s; try again when it has ended",
      static_cast<int>(holder.l_pid), path);
}

// The lock is what counts; a record that cannot be written is done without.
void write_pid_record(int fd) {
  char record[kPidRecordSize] = "";
  snprintf(record, sizeof record, "%d", getpid());
  if (ftruncate(fd, 0) == 0) (void)!write(fd, record, sizeof record);
}

}  // namespace

int take_lock(const char* path) {
  const int fd = retry_interrupted([&] { return open(path, O_RDWR | O_CREAT | O_CLOEXEC | O_NOCTTY, 0644); });
  if (fd < 0) return system_fault("cannot open the pid file %s (--pid-file names another)", path);
  struct flock lock = whole_file();
  if (fcntl(fd, F_SETLK, &lock) != 0) return refuse(fd, path);
  write_pid_record(fd);
  return 0;  // never closed: that would end the lock
}

}  // namespace restore
