// The small files of the run directory and the run log.
#include <algorithm>
#include <ctime>

#include "main/run/log.h"
#include "tests/unit/simulated_module.h"

namespace {

using RunFiles = SimulatedModule;

TEST_F(RunFiles, HoldWhatWasWrittenLast) {
  start("");
  EXPECT_EQ(tarv_read_int_file(PATH_TARV_DOWNLOAD_SIZE), -1);
  const std::pair<const char*, int32_t> numbers[] = {{"", -1},   {"3536\n", 3536}, {"-5", -5},
                                                     {"x7", -1}, {"\n7", -1},      {"2147483648", INT32_MAX}};
  for (const auto& [text, number] : numbers) {
    write(PATH_TARV_DOWNLOAD_SIZE, text);
    EXPECT_EQ(tarv_read_int_file(PATH_TARV_DOWNLOAD_SIZE), number) << text;
    EXPECT_EQ(tarv_get_download_size(), std::max(number, 0)) << text;
  }
  for (const int status : {5, 5, 9, -1}) {
    ginfo->status = status;
    tarv_write_status();
    EXPECT_EQ(run_file("status"), std::to_string(status));
  }
  const std::string success = "TARV_STATUS_SUCCESS\n", other = "TARV_STATUS_ERR_INPUT\n";
  EXPECT_EQ(run_file("status_str"), success + success + other + other);
  tarv_write_fail_reason("a long reason\n");
  tarv_write_fail_reason("short");
  tarv_write_file(PATH_TARV_FAIL_REASON, "none", 0);
  EXPECT_EQ(run_file("fail_reason"), "short");
}

TEST_F(RunFiles, LogIsRotatedStampedAndCut) {
  setenv("TZ", "XXX-12:34:56", 1);
  const auto stamp = [] {
    const time_t there = time(nullptr) + 45296;
    char text[32];
    return std::string(text, strftime(text, sizeof text, "[%Y%m%d_%H%M%S] ", gmtime(&there)));
  };
  for (const size_t size : {524288u, 524289u}) {
    start("");
    write(PATH_TARV_LOG, std::string(size, '-'));
    const std::string before = stamp();
    const std::string console = console_of([] { TARV_LOG("op", "%s", std::string(2000, 'x').c_str()); });
    EXPECT_EQ(run_file("tarv_log_bak").size(), size == 524288 ? 0 : size);
    const std::string line = run_file("tarv_log").substr(size == 524288 ? size : 0);
    EXPECT_EQ(line.size(), 1023u);
    EXPECT_LE(before, line.substr(0, 18));
    EXPECT_GE(stamp(), line.substr(0, 18));
    EXPECT_EQ(console, line + "\n");
  }
  unsetenv("TZ");
}

}  // namespace
