#include "main/run/record.h"

#include <cstring>
#include <type_traits>

namespace {
run_record the_run;
store_head_record the_head;
}  // namespace

static_assert(std::is_trivially_copyable_v<run_record> && std::is_trivially_copyable_v<store_head_record>,
              "both records are reset by filling them with zeros");

run_record* const ginfo = &the_run;
store_head_record* const ghead = &the_head;

void tarv_init_info() {
  memset(ginfo, 0, sizeof *ginfo);
  memset(ghead, 0, sizeof *ghead);
  ginfo->wfd = -1;
  ginfo->download_size_fd = -1;
}
