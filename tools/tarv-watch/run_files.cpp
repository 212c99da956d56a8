#include "tools/tarv-watch/run_files.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <ctime>

#include "base/number_text.h"
#include "base/retry.h"
#include "base/unique_fd.h"
#include "tools/common/refusal.h"

namespace tools::tarv_watch {

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

known_number read_number(const std::string& path) {
  return parse_decimal(read_text(path));
}

known_number read_status(const std::string& path) {
  const known_number number = read_number(path);
  const bool known = number && *number >= TARV_STATUS_IDLE && *number <= TARV_STATUS_FAILED;
  return known ? number : std::nullopt;
}

// With "/." behind it, a path is that of a folder that may be entered, or of none.
void check_folder(const std::string& dir) {
  struct stat found = {};
  if (stat((dir + "/.").c_str(), &found) == 0 || errno == ENOENT) return;
  throw system_refusal("cannot look into the run directory " + in_quotes(dir));
}

// Refuses a file that tells the status, and is there, but may not be read.
void check_readable(const std::string& path) {
  if (unique_fd(open_file(path)).valid() || errno == ENOENT) return;
  throw system_refusal("cannot read " + in_quotes(path));
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

bool ends_with(std::string_view text, std::string_view ending) {
  return text.size() >= ending.size() && text.substr(text.size() - ending.size()) == ending;
}

// The history is written just before the status: read behind it, it is never older.
void read_statuses(const std::string& dir, run_look& look) {
  for (int i = 0; i < kReadings; ++i) {
    if (i > 0) nanosleep(&kPause, nullptr);
    look.status = read_status(path_in(dir, PATH_TARV_STATUS));
    read_history(path_in(dir, PATH_TARV_STATUS_STR), look);
    if (look.status && ends_with(look.history, kStatusLines[static_cast<size_t>(*look.status)])) return;
  }
}

// The number that an updater writes, and zero bytes behind it.
bool is_pid_record(const std::string& text) {
  const size_t digits = std::min(text.find_first_not_of("0123456789"), text.size());
  return digits > 0 && digits < text.size() && text.find_first_not_of('\0', digits) == std::string::npos;
}

}  // namespace

run_look look_at_run(const std::string& dir) {
  run_look look;
  check_folder(dir);
  check_readable(path_in(dir, PATH_TARV_STATUS));
  check_readable(path_in(dir, PATH_TARV_STATUS_STR));
  // A starter removes "status" so that nobody takes the last run for the next one; "status_str" stays then.
  look.present = access(path_in(dir, PATH_TARV_STATUS).c_str(), F_OK) == 0;
  if (!look.present) return look;
  read_statuses(dir, look);
  look.file_size = read_number(path_in(dir, PATH_TARV_FILE_SIZE));
  look.download_size = read_number(path_in(dir, PATH_TARV_DOWNLOAD_SIZE));
  for (size_t i = 0; i < kTimes; ++i) look.times[i] = read_number(path_in(dir, kTimeFiles[i]));
  look.fail_reason = read_text(path_in(dir, PATH_TARV_FAIL_REASON));
  while (!look.fail_reason.empty() && look.fail_reason.back() == '\n') look.fail_reason.pop_back();
  return look;
}

pid_lock ask_pid_lock(const std::string& pid_file) {
  const unique_fd fd(open_file(pid_file));
  if (!fd.valid() && errno == ENOENT) return pid_lock::missing;
  struct stat found = {};
  const bool opened = fd.valid() && fstat(fd.get(), &found) == 0;
  if (!opened) throw system_refusal("cannot read the pid file " + in_quotes(pid_file));
  if (!S_ISREG(found.st_mode)) throw refusal(in_quotes(pid_file) + " is no regular file, so no pid file");
  struct flock lock = {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  if (fcntl(fd.get(), F_GETLK, &lock) != 0) {
    throw system_refusal("cannot ask for the lock on " + in_quotes(pid_file));
  }
  // An updater writes the record when it has the lock, so a file without one may be about to get it.
  if (lock.l_type != F_UNLCK) return pid_lock::held;
  const std::string record = read_once(fd.get());
  if (record.empty()) return pid_lock::missing;
  if (!is_pid_record(record)) throw refusal(in_quotes(pid_file) + " is no pid file of an updater");
  return pid_lock::free;
}

}  // namespace tools::tarv_watch
