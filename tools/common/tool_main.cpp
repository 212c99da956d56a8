#include "tools/common/tool_main.h"

#include <csignal>
#include <cstdio>
#include <exception>

#include "tools/common/interruption.h"
#include "tools/common/printable.h"

namespace tools {

int run_tool(const char* name, int (*work)(int argc, char* argv[]), int argc, char* argv[], int on_fault) {
  signal(SIGPIPE, SIG_IGN);
  signal(SIGXFSZ, SIG_IGN);
  note_interruptions();
  try {
    return work(argc, argv);
  } catch (const std::exception& fault) {
    fprintf(stderr, "%s: %s\n", name, printable(fault.what()).c_str());
    return was_interrupted() ? kInterrupted : on_fault;  // an interrupted write is no fault
  }
}

}  // namespace tools
