// tarv-pkg: the package maker's tool.
#include <cstdio>
#include <string_view>

#include "tools/common/refusal.h"
#include "tools/common/tool_main.h"
#include "tools/tarv-pkg/command_line.h"

namespace tools::tarv_pkg {

namespace {

int run(int argc, char* argv[]) {
  const int status = run_command_line(argc, argv);
  if (fflush(stdout) != 0 || ferror(stdout) != 0) throw system_refusal("cannot write to standard output");
  return status;
}

}  // namespace

}  // namespace tools::tarv_pkg

int main(int argc, char* argv[]) {
  // Options before the job end the work, so the job's word is the first one.
  const bool compares = argc > 1 && std::string_view(argv[1]) == "diff";
  return tools::run_tool("tarv-pkg", tools::tarv_pkg::run, argc, argv,
                         compares ? tools::kTrouble : tools::kRefused);
}
