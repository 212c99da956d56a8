// Lets one of the updater's calls to the system fail. Loaded in front of the C library (LD_PRELOAD), it
// counts the calls about the run directory, /tmp/revid, the pid file, sockets, the shell and the flash
// layer's memory, not what the simulator does with its own files.
//
//   FAULT_CALL   "NUMBER ERROR": the call to strike, from 1, and its errno; 0 stands for half of the bytes
//   FAULT_TRACE  a file that gets a line "CALL WHAT" for each call
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

enum { kNone, kFails, kHalf, kDescriptors = 1024 };
#define NEXT(function) ((__typeof__(&(function)))dlsym(RTLD_NEXT, #function))

static char names[kDescriptors][64];  // what each descriptor stands for; empty: not counted
static int calls, struck_call, struck_error;
static FILE* trace;

__attribute__((constructor)) static void start(void) {
  sscanf(getenv("FAULT_CALL"), "%d %d", &struck_call, &struck_error);
  trace = fopen(getenv("FAULT_TRACE"), "we");
  unsetenv("LD_PRELOAD");  // the commands of the module are not counted
}

// Counts a call and says what is to become of it: with kFails, errno is set.
static int strike(const char* call, const char* what) {
  if (what[0] == '\0') return kNone;
  fprintf(trace, "%s %s\n", call, what);
  if (++calls != struck_call) return kNone;
  errno = struck_error;
  return struck_error != 0 ? kFails : kHalf;
}

static char* name_of(int fd) {
  return names[fd & (kDescriptors - 1)];
}

static const char* name_of_path(const char* path) {
  const int counts = strncmp(path, "/tmp/", 5) == 0 || strncmp(path, "/var/run/", 9) == 0;
  return counts ? strrchr(path, '/') + 1 : "";
}

int open64(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = flags & O_CREAT ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  if (strike("open", name_of_path(path)) == kFails) return -1;
  const int fd = NEXT(open64)(path, flags, mode);
  if (fd >= 0) strcpy(name_of(fd), name_of_path(path));
  return fd;
}

int socket(int domain, int type, int protocol) {
  if (strike("socket", "socket") == kFails) return -1;
  const int fd = NEXT(socket)(domain, type, protocol);
  if (fd >= 0) strcpy(name_of(fd), "socket");
  return fd;
}

int close(int fd) {
  const int fault = strike("close", name_of(fd));
  const int error = errno;
  name_of(fd)[0] = '\0';
  const int result = NEXT(close)(fd);
  if (fault == kFails) errno = error;
  return fault == kFails ? -1 : result;
}

ssize_t read(int fd, void* data, size_t length) {
  const int fault = strike("read", name_of(fd));
  if (fault == kFails) return -1;
  if (fault == kHalf) length = (length + 1) / 2;
  // A socket gives all that it is asked for, so that every run makes the same calls.
  if (strcmp(name_of(fd), "socket") == 0) return recv(fd, data, length, MSG_WAITALL);
  return NEXT(read)(fd, data, length);
}

ssize_t write(int fd, const void* data, size_t length) {
  const int fault = strike("write", name_of(fd));
  return fault == kFails ? -1 : NEXT(write)(fd, data, fault == kHalf ? (length + 1) / 2 : length);
}

ssize_t pwrite64(int fd, const void* data, size_t length, off64_t offset) {
  const int fault = strike("write", name_of(fd));
  return fault == kFails ? -1 : NEXT(pwrite64)(fd, data, fault == kHalf ? (length + 1) / 2 : length, offset);
}

// Interrupted, the kernel goes on with it.
int connect(int fd, const struct sockaddr* to, socklen_t n) {
  const int fault = strike("connect", name_of(fd));
  if (fault == kFails && errno != EINTR) return -1;
  const int result = NEXT(connect)(fd, to, n);
  if (fault == kFails) errno = EINTR;
  return fault == kFails ? -1 : result;
}

// Functions that can only fail as a whole; `failed` is their result then.
#define FAILING(result, function, parameters, arguments, call, what, failed)   \
  result function parameters {                                                 \
    return strike(call, what) == kFails ? (failed) : NEXT(function) arguments; \
  }
FAILING(int, setsockopt, (int fd, int level, int option, const void* value, socklen_t n),
        (fd, level, option, value, n), "setsockopt", name_of(fd), -1)
FAILING(int, stat64, (const char* path, struct stat64* found), (path, found), "stat", name_of_path(path), -1)
FAILING(int, mkdir, (const char* path, mode_t mode), (path, mode), "mkdir", name_of_path(path), -1)
FAILING(FILE*, fopen64, (const char* path, const char* mode), (path, mode), "fopen", name_of_path(path), NULL)
FAILING(size_t, fread, (void* data, size_t size, size_t n, FILE* from), (data, size, n, from), "fread",
        "stream", 0)
FAILING(int, system, (const char* command), (command), "system", "shell", -1)
FAILING(FILE*, popen, (const char* command, const char* mode), (command, mode), "popen", "shell", NULL)
// new (std::nothrow), for one object and for an array: only the flash layer says it.
FAILING(void*, _ZnwmRKSt9nothrow_t, (size_t size, const void* tag), (size, tag), "new", "memory", NULL)
FAILING(void*, _ZnamRKSt9nothrow_t, (size_t size, const void* tag), (size, tag), "new", "memory", NULL)
