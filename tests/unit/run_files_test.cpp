// The small files of the run directory and the run log.
#include <algorithm>
#include <ctime>

#include "main/options.h"
#include "main/run/log.h"
#include "tests/unit/simulated_module.h"

namespace {

using RunFiles = SimulatedModule;

TEST_F(RunFiles, HoldWhatWasWrittenLast) {
  start("");
  EXPECT_EQ(tarv_read_int_file(PATH_TARV_DOWNLOAD_SIZE), -1);
  for (const auto& [text, number] :
       {std::pair("", -1), {"3536\n", 3536}, {"-5", -5}, {"x7", -1}, {"\n7", -1}}) {
    write(PATH_TARV_DOWNLOAD_SIZE, text);
    EXPECT_EQ(tarv_read_int_file(PATH_TARV_DOWNLOAD_SIZE), number) << text;
    EXPECT_EQ(tarv_get_download_size(), std::max(number, 0)) << text;
  }
  for (const int status : {5, 9, -1}) {
    ginfo->status = status;
    tarv_write_status();
    EXPECT_EQ(run_file("status"), std::to_string(status));
  }
  EXPECT_EQ(run_file("status_str"), "TARV_STATUS_SUCCESS\nTARV_STATUS_ERR_INPUT\nTARV_STATUS_ERR_INPUT\n");
  tarv_write_fail_reason("a long reason\n");
  tarv_write_fail_reason("short");
  tarv_write_file(PATH_TARV_FAIL_REASON, "none", 0);
  EXPECT_EQ(run_file("fail_reason"), "short");
}

TEST_F(RunFiles, DownloadSizeIsWhatWasSetLast) {
  start("");
  for (const int size : {3536, 100000, 5, 7, INT32_MIN, 12}) {
    tarv_set_download_size(size);
    EXPECT_EQ(run_file("download_size"), std::to_string(size));
  }
  std::filesystem::remove(PATH_TARV_DOWNLOAD_SIZE);
  tarv_set_download_size(13);
  EXPECT_EQ(run_file("download_size"), "13");
  tarv_close_download_size();
}

TEST_F(RunFiles, StartWithoutAProgramName) {
  char* none[] = {nullptr};
  tarv_start start = tarv_start::run_detached;
  const std::string console = console_of([&] { start = tarv_parse_options(0, none); });
  EXPECT_EQ(start, tarv_start::exit_failure);
  EXPECT_NE(console.find("Usage: tarvolin "), std::string::npos);
}

TEST_F(RunFiles, LogIsRotatedStampedAndCut) {
  setenv("TZ", "XXX-12:34:56", 1);
  for (const size_t size : {524288u, 524289u}) {
    start("");
    write(PATH_TARV_LOG, std::string(size, '-'));
    const time_t there = time(nullptr) + 45296;
    const std::string console = console_of([] { TARV_LOG("op", "%s", std::string(2000, 'x').c_str()); });
    EXPECT_EQ(run_file("tarv_log_bak").size(), size == 524288 ? 0 : size);
    const std::string line = run_file("tarv_log").substr(size == 524288 ? size : 0);
    EXPECT_EQ(line.size(), 1023u);
    tm stamp = {};
    ASSERT_STREQ(strptime(line.substr(0, 18).c_str(), "[%Y%m%d_%H%M%S] ", &stamp), "");
    EXPECT_LE(timegm(&stamp) - there, 5);
    EXPECT_GE(timegm(&stamp), there);
    EXPECT_EQ(console, line + "\n");
  }
  unsetenv("TZ");
}

}  // namespace
