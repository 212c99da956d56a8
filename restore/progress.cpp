#include "restore/progress.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace restore {

namespace {

constexpr double kRedrawSeconds = 0.2;
constexpr double kRateSeconds = 0.5;  // no rate before that
constexpr unsigned kLineStep = 10;    // percent from one line to the next
constexpr int kColumnsMin = 24, kColumnsMax = 200, kColumnsUsual = 80, kBarMin = 8;
constexpr char kPlain[] = "\033[0m", kCyan[] = "\033[36m", kGreen[] = "\033[32m", kRed[] = "\033[31m";

struct step {
  const char* work = "";
  const char* what = "";
  uint64_t done = 0;
  uint64_t total = 0;
  double began = 0;   // seconds of the monotonic clock
  double shown = 0;   // when it was shown last
  unsigned said = 0;  // percent when a line was printed last
};

struct display {
  FILE* out = stdout;
  progress_form form = progress_form::lines;
  bool in_colour = false;
  bool line_open = false;  // a line is there that is redrawn
};

display screen;
step now;

double seconds() {
  timespec time = {};
  clock_gettime(CLOCK_MONOTONIC, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

// Nobody needs to listen.
void flush() {
  (void)!fflush(screen.out);
}

const char* colour(const char* code) {
  return screen.in_colour ? code : "";
}

unsigned percent() {
  return now.total == 0 ? 100 : static_cast<unsigned>(std::min(now.done, now.total) * 100 / now.total);
}

// Bytes a second, or 0 as long as that is anybody's guess.
double rate() {
  const double spent = seconds() - now.began;
  return spent < kRateSeconds ? 0 : static_cast<double>(now.done) / spent;
}

int64_t seconds_left(double bytes_a_second) {
  if (bytes_a_second <= 0 || now.done > now.total) return -1;
  return static_cast<int64_t>(static_cast<double>(now.total - now.done) / bytes_a_second);
}

struct unit {
  const char* name;
  double bytes;
};

unit unit_for(double bytes) {
  constexpr double kKib = 1024, kMib = kKib * 1024;
  return bytes >= kMib ? unit{"MiB", kMib} : unit{"KiB", kKib};
}

struct numbers {
  char bytes[48];  // "4.0/9.2 MiB"
  char left[32];   // "0:03 left", or ""
  char speed[32];  // "2.5 MiB/s", or ""
};

numbers in_words() {
  numbers text = {};
  const unit size = unit_for(static_cast<double>(now.total));
  snprintf(text.bytes, sizeof text.bytes, "%.1f/%.1f %s", static_cast<double>(now.done) / size.bytes,
           static_cast<double>(now.total) / size.bytes, size.name);
  const double speed = rate();
  const unit by = unit_for(speed);
  if (speed > 0) snprintf(text.speed, sizeof text.speed, "%.1f %s/s", speed / by.bytes, by.name);
  const int64_t left = seconds_left(speed);
  if (left >= 0)
    snprintf(text.left, sizeof text.left, "%" PRId64 ":%02" PRId64 " left", left / 60, left % 60);
  return text;
}

void print_json_text(const char* text) {
  fputc('"', screen.out);
  for (; *text != '\0'; ++text) {
    if (*text == '"' || *text == '\\') fputc('\\', screen.out);
    fputc(*text, screen.out);
  }
  fputc('"', screen.out);
}

void print_json(const char* message, int exit_status) {
  const double speed = rate();
  const int64_t left = seconds_left(speed);
  fprintf(screen.out,
          "{\"step\": \"%s\", \"what\": \"%s\", \"percent\": %u, \"done\": %" PRIu64 ", \"total\": %" PRIu64,
          now.work, now.what, percent(), now.done, now.total);
  if (speed > 0) {
    fprintf(screen.out, ", \"rate\": %.0f", speed);
  } else {
    fprintf(screen.out, ", \"rate\": null");
  }
  if (left >= 0) {
    fprintf(screen.out, ", \"seconds_left\": %" PRId64 ", \"message\": ", left);
  } else {
    fprintf(screen.out, ", \"seconds_left\": null, \"message\": ");
  }
  if (message != nullptr) {
    print_json_text(message);
    fprintf(screen.out, ", \"exit_status\": %d}\n", exit_status);
  } else {
    fprintf(screen.out, "null, \"exit_status\": null}\n");
  }
}

// Columns that a line may fill; the last one stays free, or some terminals begin a new line.
int usable_columns() {
  winsize size = {};
  if (ioctl(fileno(screen.out), TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return kColumnsUsual - 1;
  return std::clamp<int>(size.ws_col, kColumnsMin, kColumnsMax) - 1;
}

// A bar, shorter than a third of the columns, then what there is room for, in the order of its worth.
void redraw() {
  const numbers text = in_words();
  const int columns = usable_columns();
  const int inside = std::max(columns / 3 - 5, kBarMin) - 2;
  const int full = inside * static_cast<int>(percent()) / 100;
  fprintf(screen.out, "\r\033[K%s%-8s%-11s%s[%s", colour(kCyan), now.work, now.what, colour(kPlain),
          colour(kGreen));
  for (int i = 0; i < inside; ++i) {
    if (i == full) fprintf(screen.out, "%s", colour(kPlain));
    fputc(i < full ? '#' : '-', screen.out);
  }
  int used = fprintf(screen.out, "%s] %2u %%", full == inside ? colour(kPlain) : "", percent());
  used += 19 + 1 + inside;
  for (const char* part : {text.bytes, text.left, text.speed}) {
    const int width = static_cast<int>(strlen(part)) + 2;
    if (width == 2 || used + width > columns) continue;
    used += fprintf(screen.out, "  %s", part);
  }
  screen.line_open = true;
}

void print_line() {
  const numbers text = in_words();
  fprintf(screen.out, "%s %s: %u %%, %s", now.work, now.what, percent(), text.bytes);
  for (const char* part : {text.speed, text.left}) {
    if (part[0] != '\0') fprintf(screen.out, ", %s", part);
  }
  fputc('\n', screen.out);
}

void show() {
  if (screen.form == progress_form::terminal) {
    redraw();
  } else if (screen.form == progress_form::json) {
    print_json(nullptr, 0);
  } else {
    print_line();
  }
  now.shown = seconds();
  now.said = percent();
  flush();
}

bool is_news() {
  if (screen.form == progress_form::terminal) return seconds() - now.shown >= kRedrawSeconds;
  if (screen.form == progress_form::json) return percent() != now.said;
  // A step that is over in a moment needs no line but its last.
  return rate() > 0 && percent() / kLineStep != now.said / kLineStep && percent() < 100;
}

}  // namespace

void show_progress(FILE* out, progress_form form, bool in_colour) {
  screen = {out, form, in_colour, false};
}

void begin_step(const char* work, const char* what, uint64_t total) {
  now = {work, what, 0, total, seconds(), 0, 0};
  if (screen.form != progress_form::lines) show();
}

void add_progress(uint64_t bytes) {
  now.done += bytes;
  if (is_news()) show();
}

void end_step(const char* remark) {
  if (screen.form == progress_form::json) return;
  const unit size = unit_for(static_cast<double>(now.done));
  const bool is_terminal = screen.form == progress_form::terminal;
  if (is_terminal) {
    fprintf(screen.out, "\r\033[K%-8s%-11s", now.work, now.what);
  } else {
    fprintf(screen.out, "%s %s: ", now.work, now.what);
  }
  if (remark != nullptr) {
    fprintf(screen.out, "%s\n", remark);
  } else {
    fprintf(screen.out, "%.1f %s in %.0f s\n", static_cast<double>(now.done) / size.bytes, size.name,
            seconds() - now.began);
  }
  screen.line_open = false;
  flush();
}

void leave_line() {
  if (screen.line_open) fputc('\n', screen.out);
  screen.line_open = false;
  flush();
}

void show_outcome(const char* message, int exit_status) {
  leave_line();
  if (screen.form == progress_form::json) {
    print_json(message, exit_status);
  } else if (exit_status == 0) {
    fprintf(screen.out, "%s%s%s\n", colour(kGreen), message, colour(kPlain));
  }
  flush();
  if (exit_status == 0) return;
  const bool painted = screen.in_colour && isatty(STDERR_FILENO) != 0;
  fprintf(stderr, "%starv-restore: %s%s\n", painted ? kRed : "", message, painted ? kPlain : "");
}

}  // namespace restore
