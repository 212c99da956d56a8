// The updater as a child process.
#ifndef TARVOLIN_FETCH_UPDATER_H
#define TARVOLIN_FETCH_UPDATER_H

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace fetch {

// How a process ended.
struct updater_end {
  bool by_signal = false;
  int number = 0;  // exit status or signal
};

class updater {
 public:
  // Starts `program` (found on PATH unless it has a "/") with --debug, --url and `options`. It gets the
  // standard descriptors, no other one, the signal mask `mask`, and a process group of its own: an interrupt
  // from the keyboard is not for it. With `quiet` its standard output is /dev/null. Returns 0, or -1 with
  // errno.
  [[nodiscard]] int start(const std::string& program, const std::string& url,
                          const std::vector<std::string>& options, const sigset_t& mask, bool quiet);
  // Collects it if it has ended.
  void look();
  // Asks it to end.
  void terminate() const;

  bool started() const { return pid_ > 0; }
  bool running() const { return started() && !end_; }
  const std::optional<updater_end>& end() const { return end_; }
  pid_t pid() const { return pid_; }

 private:
  pid_t pid_ = -1;
  std::optional<updater_end> end_;
};

}  // namespace fetch

#endif
