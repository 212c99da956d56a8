#include "main/daemon.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "base/descriptors.h"
#include "main/run/run_directory.h"

namespace {

constexpr size_t kPidRecordSize = 128;

// Continues in the child only. The parent exits with 0; after a failed fork there is only the parent, so the
// starter cannot tell that no run began.
void continue_in_child() {
  if (fork() != 0) exit(0);
}

// Takes a write lock on the whole file without waiting. A record lock, not flock(2): fcntl(F_GETLK) shows its
// owner, and the kernel drops it with the process.
bool lock_file(int fd) {
  struct flock lock = {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  return fcntl(fd, F_SETLK, &lock) == 0;
}

// Only the lock counts. The record is for people, so a failed write is ignored.
void write_pid_record(int fd) {
  char record[kPidRecordSize] = "";
  snprintf(record, sizeof record, "%d", getpid());
  if (ftruncate(fd, 0) == 0) (void)!write(fd, record, sizeof record);
}

}  // namespace

void tarv_daemonize() {
  // Before the first fork: a starter that leads its terminal's session ends that session when it exits. The
  // kernel's SIGHUP may reach the child before it has a session of its own.
  signal(SIGHUP, SIG_IGN);
  continue_in_child();
  // The second fork makes a process that leads no session: it can never get a terminal again.
  setsid();
  continue_in_child();
  (void)!chdir("/");
  umask(0);
  close_inherited_descriptors();
  for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) close(fd);
  // The lowest numbers are free now, so the next three descriptors are 0, 1 and 2.
  const int null = open("/dev/null", O_RDWR);
  (void)!dup(null);
  (void)!dup(null);
}

int get_process_name(char (&name)[kProcessNameCapacity]) {
  char link[1024] = "";
  const ssize_t length = readlink("/proc/self/exe", link, sizeof link);
  if (length < 1 || length > static_cast<ssize_t>(sizeof link) - 1) {
    printf("readlink error, ret: %d\n", static_cast<int>(length));
    return -1;
  }
  const std::string_view path(link, static_cast<size_t>(length));
  const size_t slash = path.rfind('/');
  if (slash == std::string_view::npos) return -1;
  const std::string_view file_name = path.substr(slash + 1, kProcessNameCapacity - 1);
  memcpy(name, file_name.data(), file_name.size());
  name[file_name.size()] = '\0';
  return static_cast<int>(file_name.size());
}

int check_process_running() {
  char name[kProcessNameCapacity] = "";
  char path[128] = "";
  get_process_name(name);
  snprintf(path, sizeof path, TARV_PID_DIR "/%s" TARV_PID_ENDING, name);
  // No O_TRUNC: the file may belong to a running updater, whose record must stay.
  const int fd = open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  if (fd < 0) {
    printf("%s[%d], open\n", __func__, __LINE__);
    exit(1);
  }
  if (!lock_file(fd)) {
    printf("[%d] %s lock_set\n", __LINE__, name);
    close(fd);
    exit(1);
  }
  write_pid_record(fd);
  return 0;
}
