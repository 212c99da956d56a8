#include "fetch/updater.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "base/retry.h"
#include "base/unique_fd.h"

namespace fetch {

namespace {

// libcurl opens descriptors that would be inherited. Between fork and exec nothing may take memory, so all
// numbers are gone through.
void close_on_exec_all() {
  const long most = sysconf(_SC_OPEN_MAX);
  const int end = most > 0 && most < 65536 ? static_cast<int>(most) : 65536;
  for (int fd = STDERR_FILENO + 1; fd < end; ++fd) fcntl(fd, F_SETFD, FD_CLOEXEC);
}

// Becomes the updater; when that fails, errno goes into `report`.
[[noreturn]] void become(char* const words[], const sigset_t& mask, bool quiet, int report) {
  setpgid(0, 0);
  signal(SIGPIPE, SIG_DFL);
  sigprocmask(SIG_SETMASK, &mask, nullptr);
  close_on_exec_all();
  const int null = quiet ? open("/dev/null", O_WRONLY | O_CLOEXEC) : -1;
  if (null >= 0) dup2(null, STDOUT_FILENO);
  execvp(words[0], words);
  const int error = errno;
  (void)!write(report, &error, sizeof error);
  _exit(127);
}

}  // namespace

int updater::start(const std::string& program, const std::string& url,
                   const std::vector<std::string>& options, const sigset_t& mask, bool quiet) {
  std::vector<std::string> texts = {program, "--debug", "--url=" + url};
  texts.insert(texts.end(), options.begin(), options.end());
  std::vector<char*> words;
  words.reserve(texts.size() + 1);
  for (std::string& text : texts) words.push_back(text.data());
  words.push_back(nullptr);
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return -1;
  const unique_fd report(ends[0]);
  const pid_t pid = fork();
  if (pid == 0) become(words.data(), mask, quiet, ends[1]);
  close(ends[1]);
  if (pid < 0) return -1;
  int error = 0;
  const ssize_t n = retry_interrupted([&] { return read(report.get(), &error, sizeof error); });
  if (n != sizeof error) {
    pid_ = pid;
    return 0;
  }
  retry_interrupted([&] { return waitpid(pid, nullptr, 0); });
  errno = error;
  return -1;
}

void updater::look() {
  int status = 0;
  if (!running() || waitpid(pid_, &status, WNOHANG) != pid_) return;
  const bool killed = WIFSIGNALED(status);
  end_ = updater_end{killed, killed ? WTERMSIG(status) : WEXITSTATUS(status)};
}

void updater::terminate() const {
  if (running()) kill(pid_, SIGTERM);
}

}  // namespace fetch
