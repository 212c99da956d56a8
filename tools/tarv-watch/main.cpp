// tarv-watch: follows a run of the updater by its run directory.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>

#include "base/version.h"
#include "main/run/run_directory.h"
#include "tools/common/command_line.h"
#include "tools/common/exit_status.h"
#include "tools/common/interruption.h"
#include "tools/common/refusal.h"
#include "tools/common/tool_main.h"
#include "tools/tarv-watch/watch.h"

namespace tools::tarv_watch {

namespace {

constexpr double kLongestWait = 999999999;

constexpr char kFooter[] =
    "Exit status:\n"
    "  0   success, or done here and to be restored\n"
    "  1   run directory or pid file cannot be read, or standard output written\n"
    "  2   wrong usage\n"
    "  10  the download stage failed\n"
    "  11  the check stage failed\n"
    "  12  the install stage failed\n"
    "  20  no run began within --wait\n"
    "  21  the updater has gone without an outcome\n"
    "  130 interrupted";

// Decimal digits, with a point among them or not: nothing that a library might take for a number.
double read_seconds(const std::string& word) {
  const size_t point = word.find('.');
  const std::string whole = word.substr(0, point),
                    digits = point == std::string::npos ? "" : word.substr(point + 1);
  const bool decimal = !whole.empty() &&
                       (whole + digits).find_first_not_of("0123456789") == std::string::npos &&
                       (point == std::string::npos || !digits.empty());
  const double seconds = decimal ? strtod(word.c_str(), nullptr) : -1;
  if (seconds >= 0 && seconds <= kLongestWait) return seconds;
  throw CLI::ValidationError("--wait", in_quotes(word) + " is not a number of seconds from 0 to 999999999");
}

bool has_terminal() {
  const char* terminal = getenv("TERM");
  return isatty(STDOUT_FILENO) != 0 && terminal != nullptr && strcmp(terminal, "dumb") != 0;
}

bool wants_colour() {
  const char* refused = getenv("NO_COLOR");
  return refused == nullptr || refused[0] == '\0';
}

std::unique_ptr<run_view> make_view(bool as_json) {
  if (as_json) return make_json_view();
  return has_terminal() ? make_terminal_view(wants_colour()) : make_line_view();
}

int follow(int argc, char* argv[]) {
  CLI::App app("Follows a run of the updater by its run directory.", "tarv-watch");
  watch_order order;
  order.dir = TARV_RUN_DIR;
  bool as_json = false;
  const CLI::Option* dir =
      app.add_option("--dir", order.dir, "Run directory, default " TARV_RUN_DIR)->type_name("DIR");
  const CLI::Option* pid_file =
      app.add_option("--pid-file", order.pid_file, "The updater's pid file: tells whether it runs")
          ->type_name("FILE");
  app.add_option_function<std::string>(
         "--wait", [&](const std::string& word) { order.wait_seconds = read_seconds(word); },
         "Seconds to wait for a run, default: for ever")
      ->type_name("SECONDS");
  app.add_flag("--new", order.only_new, "Wait for a run that begins from now on");
  app.add_flag("--json", as_json, "Print one JSON object a line for each change");
  app.set_version_flag("-V,--version", std::string("tarv-watch ") + version_text);
  app.footer(kFooter);
  const int status = take_command_line(app, argc, argv, stdout, [&] {
    // The usual pid file belongs to the usual run directory.
    if (dir->empty() && pid_file->empty()) order.pid_file = PATH_TARV_PID;
    return watch_run(order, *make_view(as_json)).value_or(kInterrupted);
  });
  write_now("");
  return status;
}

int run(int argc, char* argv[]) {
  try {
    return follow(argc, argv);
  } catch (const std::exception&) {
    if (was_interrupted()) return kInterrupted;  // an interrupted write is no fault
    throw;
  }
}

}  // namespace

}  // namespace tools::tarv_watch

int main(int argc, char* argv[]) {
  return tools::run_tool("tarv-watch", tools::tarv_watch::run, argc, argv);
}
