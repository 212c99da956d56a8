#include "restore/fault.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "restore/progress.h"

namespace restore {

namespace {

char kept[kFaultCapacity] = "";

}  // namespace

void make_printable(const char* text, char* out, size_t capacity) {
  constexpr size_t kEscape = 4;  // characters of \xNN
  char* const last = out + capacity - 1;
  for (; *text != '\0' && out + kEscape <= last; ++text) {
    if (*text >= ' ' && *text <= '~' && *text != '\\') {
      *out++ = *text;
    } else {
      out += snprintf(out, kEscape + 1, "\\x%02x", static_cast<unsigned>(static_cast<unsigned char>(*text)));
    }
  }
  *out = '\0';
}

int fault(const char* format, ...) {
  if (kept[0] != '\0') return -1;
  char text[kFaultCapacity];
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  make_printable(text, kept, sizeof kept);
  return -1;
}

int system_fault(const char* format, ...) {
  const int error = errno;
  char text[kFaultCapacity];
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  return fault("%s: %s", text, strerror(error));
}

const char* fault_text() {
  return kept;
}

void forget_fault() {
  kept[0] = '\0';
}

void warn(const char* format, ...) {
  char text[kFaultCapacity];
  char shown[kFaultCapacity];
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  make_printable(text, shown, sizeof shown);
  leave_line();
  fprintf(stderr, "tarv-restore: %s\n", shown);
}

}  // namespace restore
