#include "tools/tarv-watch/run_files.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <ctime>

#include "base/number_text.h"
#include "base/retry.h"
#include "base/unique_fd.h"

namespace {

constexpr size_t kTextMax = 4096;  // longer than any of these files
constexpr int kReadings = 5;       // of a file that is found empty
constexpr timespec kPause = {0, 1'000'000};

// Where the file that usually has the path `usual` is in the run directory `dir`.
std::string path_in(const std::string& dir, const char* usual) {
  return dir + "/" + tarv_run_file_name(usual);
}

// Everyone may put a pipe in the place of a file: O_NONBLOCK keeps it from holding the watch.
int open_file(const std::string& path) {
  return open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
}

std::string read_once(int fd) {
  std::string text(kTextMax, '\0');
  const ssize_t n = retry_interrupted([&] { return read(fd, text.data(), text.size()); });
  text.resize(static_cast<size_t>(std::max<ssize_t>(n, 0)));
  return text;
}

std::string read_text(const std::string& path) {
  std::string text;
  for (int i = 0; i < kReadings && text.empty(); ++i) {
    if (i > 0) nanosleep(&kPause, nullptr);
    const unique_fd fd(open_file(path));
    if (!fd.valid()) return "";
    text = read_once(fd.get());
  }
  return text;
}

// A run writes no negative number but for a clock that was set, or a length that no package has.
known_number read_number(const std::string& path) {
  const known_number number = parse_decimal(read_text(path));
  return number && *number >= 0 ? number : std::nullopt;
}

double age_of(const statx_timestamp& moment) {
  timespec now = {};
  clock_gettime(CLOCK_REALTIME, &now);
  const double age = static_cast<double>(now.tv_sec - moment.tv_sec) +
                     (static_cast<double>(now.tv_nsec) - static_cast<double>(moment.tv_nsec)) / 1e9;
  return std::clamp(age, 0.0, 1e6);
}

void read_history(const std::string& path, run_look& look) {
  const unique_fd fd(open_file(path));
  struct statx about = {};
  if (!fd.valid() || statx(fd.get(), "", AT_EMPTY_PATH, STATX_BASIC_STATS | STATX_BTIME, &about) != 0) return;
  const std::string text = read_once(fd.get());
  look.history = text.substr(0, text.rfind('\n') + 1);
  look.identity = {about.stx_ino, about.stx_btime.tv_sec, about.stx_btime.tv_nsec};
  look.status_age = age_of(about.stx_mtime);
}

}  // namespace

run_look look_at_run(const std::string& dir) {
  run_look look;
  // A starter removes "status" so that nobody takes the last run for the next one; "status_str" stays then.
  if (access(path_in(dir, PATH_TARV_STATUS).c_str(), F_OK) != 0) return look;
  read_history(path_in(dir, PATH_TARV_STATUS_STR), look);
  if (look.history.empty()) return look;
  look.file_size = read_number(path_in(dir, PATH_TARV_FILE_SIZE));
  look.download_size = read_number(path_in(dir, PATH_TARV_DOWNLOAD_SIZE));
  for (size_t i = 0; i < kTimes; ++i) look.times[i] = read_number(path_in(dir, kTimeFiles[i]));
  look.fail_reason = read_text(path_in(dir, PATH_TARV_FAIL_REASON));
  while (!look.fail_reason.empty() && look.fail_reason.back() == '\n') look.fail_reason.pop_back();
  return look;
}

bool no_updater_holds(const std::string& pid_file) {
  const unique_fd fd(open_file(pid_file));
  if (!fd.valid()) return errno == ENOENT;
  struct flock lock = {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  return fcntl(fd.get(), F_GETLK, &lock) == 0 && lock.l_type == F_UNLCK;
}
