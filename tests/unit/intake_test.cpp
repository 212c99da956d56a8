// The package intake: a response leaves the same behind however it is cut, a failure leaves nothing open.
#include "package/intake.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <vector>

#include "download/completion.h"
#include "download/response.h"
#include "package/crc32.h"
#include "package/head_rules.h"
#include "package/readback_check.h"
#include "tests/unit/simulated_module.h"

namespace {

using namespace std::string_literals;

// The store has room for one block in each of the first two partitions and for two in the third.
const char* const kModule =
    "erase_size 8192\npage_size 2048\npartition 0 userdata 10510336\nbad userdata 0\n"
    "partition 1 recoveryfs 4202496\npartition 2 recovery 2113536\n";
constexpr size_t kSizes[] = {10510336, 4202496, 2113536};

using images = std::vector<std::pair<const char*, size_t>>;  // names and sizes

class Intake : public SimulatedModule {
 protected:
  // A package whose file-group images are to be saved as "f0" (image 0), "f1" and so on.
  static std::string package(const images& all) {
    crc32_init_table();
    package_head head = {TARV_PACKAGE_MAGIC, 1, 2, "31405", kPackageHeadSize, 0, {{"sbl", "f0", 0, 0}}, 0};
    std::string data;
    for (const auto& [name, size] : all) {
      package_entry& entry = head.images[head.image_num];
      strcpy(entry.name, name);
      snprintf(entry.file_name, sizeof entry.file_name, "f%d", head.image_num++);
      const std::string bytes = noise(size, head.image_num);
      entry.size = static_cast<uint32_t>(size);
      entry.crc = crc32_update(kCrcStart, bytes.data(), bytes.size());
      data += bytes;
    }
    head.header_crc32 = package_head_crc(head);
    return bytes_of(head) + data;
  }

  template <typename Record>
  static std::string bytes_of(const Record& record) {
    return {reinterpret_cast<const char*>(&record), sizeof record};
  }

  void start_for(const std::string& package, const std::string& faults = "") {
    start(kModule, faults);
    for (int i = 0; i < 3; ++i) write(flash_file(i), std::string(kSizes[i], '#'));
    strcpy(ginfo->revid, "31405");
    ginfo->file_len = static_cast<uint32_t>(package.size());
  }

  static int32_t save(const std::string& bytes) {
    return vexo_tarv_save_data(bytes.data(), static_cast<int32_t>(bytes.size()));
  }

  // Takes in the response, cut at `cuts` and at what can be gathered before the body. Returns what is left.
  std::map<std::string, std::string> take(const std::string& response, std::vector<size_t> cuts) {
    start_for("");
    cuts.push_back(response.size());
    for (size_t at = 0, n = 0; at < response.size(); at += n) {
      n = *std::upper_bound(cuts.begin(), cuts.end(), at) - at;
      const auto room = static_cast<size_t>(kHttpHeadCapacity - ginfo->http_head_buf_len);
      if (ginfo->download_status == TARV_DOWNLOAD_IDLE) n = std::clamp<size_t>(room, 1, n);
      if (vexo_tarv_download_handler(response.data() + at, static_cast<int>(n)) != 0) break;
    }
    EXPECT_EQ(ginfo->wfd, -1);
    EXPECT_EQ(tarv_complete_download("test", false), 0);
    std::map<std::string, std::string> left;
    left["records"] = bytes_of(*ghead) + bytes_of(ginfo->image_saved) + bytes_of(ginfo->fileoffset);
    left["flash operations"] = bytes_of(sim_counts());
    left["flash"] = flash(0) + flash(1) + flash(2);
    for (const auto& file : std::filesystem::directory_iterator(TARV_RUN_DIR)) {
      const std::string name = file.path().filename();
      if (name.rfind("tarv_log", 0) != 0 && name != "http_header") left[name] = read(file.path());
    }
    return left;
  }
};

TEST_F(Intake, AnySplitIsTheSame) {
  const uint32_t seed = std::random_device()();
  std::mt19937 random(seed);
  const images mixed = {{"system", 5000}, {"sbl", 3000}, {"systemdata", 0}, {"aop", 0}, {"modem", 9000}};
  for (const images& all : {mixed, images{{"recovery", 9000}, {"recoveryfs", 8192}}}) {
    const std::string bytes = package(all);
    const std::string response = "Content-Length: " + std::to_string(bytes.size()) + "\r\n\r\n" + bytes;
    std::vector<std::vector<size_t>> splits;
    size_t border = response.size() - bytes.size();
    std::vector<size_t> borders = {border, border += kPackageHeadSize};
    for (const auto& [name, size] : all) borders.push_back(border += size);
    for (const size_t b : borders) {
      for (size_t at = b - 4; at <= b + 4 && at < response.size(); ++at) splits.push_back({at});
    }
    for (int i = 0; i < 8; ++i) {
      splits.emplace_back(1 + random() % 60);
      for (size_t& cut : splits.back()) cut = 1 + random() % (response.size() - 1);
      std::sort(splits.back().begin(), splits.back().end());
    }
    splits.emplace_back();
    for (size_t at = 1; at < response.size(); ++at) splits.back().push_back(at);

    const auto whole = take(response, {});
    EXPECT_EQ(run_file("download_size"), std::to_string(bytes.size()));
    EXPECT_EQ(vexo_tarv_check_flash(), 0);
    EXPECT_EQ(vexo_tarv_check_file(), 0);
    EXPECT_EQ(vexo_tarv_check_recovery(), 0);
    for (const std::vector<size_t>& cuts : splits) {
      SCOPED_TRACE("seed " + std::to_string(seed) + ", cuts from " + std::to_string(cuts[0]));
      auto left = take(response, cuts);
      EXPECT_EQ(left.size(), whole.size());
      for (const auto& [what, content] : whole) EXPECT_TRUE(left[what] == content) << what;
    }
  }
}

TEST_F(Intake, TakesNoBytesWithoutALength) {
  start_for("");
  EXPECT_EQ(vexo_tarv_save_data(nullptr, 0), 0);
  EXPECT_EQ(vexo_tarv_save_data("x", 0), 0);
  EXPECT_EQ(vexo_tarv_save_data(nullptr, 1), -1);
  EXPECT_EQ(vexo_tarv_save_data("x", -1), -1);
  EXPECT_EQ(ginfo->head_bytes, 0);
}

TEST_F(Intake, LeavesNothingOpenAfterAFailure) {
  const struct {
    images all;
    const char *log, *faults = "", *folder = "none", *full = "nothing";  // file names
  } cases[] = {
      {{}, "error image num\n"},
      {{{"system", 7}}, "error image num\n"},
      {images(kMaxImages, {"sbl", 1}), "error image num\n"},
      {{{"recovery", 2113537}}, "vexo_tarv_mtd_close_write failed\n"},
      {{{"recovery", 2130000}}, "write partition recovery data error\n"},
      {{{"system", 5000}}, "vexo_tarv_mtd_append error\n", "program at 2 fail always"},  // the padding
      {{{"sbl", 7}, {"system", 20000}}, "vexo_tarv_mtd_append error\n", "program at 2 fail always"},
      {{{"system", 20000}}, "vexo_tarv_mtd_close_write failed\n", "close in userdata 3 fail"},
      {{{"system", 32700}, {"modem", 50}}, "vexo_tarv_mtd_append error\n"},           // behind a full store
      {{{"system", 7}, {"system", 7}, {"modem", 28672}}, "no valid partiton space"},  // across its end
      {{{"system", 7}}, "mtd_seek_write_pos error\n", "badblock in userdata 1 fail always"},
      {{{"sbl", 7}}, "open /tmp/tarvolin/f0 failed\n", "", "f0"},
      {{{"system", 7}, {"sbl", 7}}, "ginfo->wfd error: -1\n", "", "f1"},
      {{{"system", 7}, {"sbl", 7}}, "vexo_tarv_file_append error, -1/7\n", "", "none", "f1"},
  };
  for (const auto& c : cases) {
    for (const bool same_call : {true, false}) {
      SCOPED_TRACE(c.log + (same_call ? "one byte more at once"s : "one byte more later"s));
      const std::string bytes = package(c.all);
      start_for(bytes, c.faults);
      std::filesystem::create_directory(TARV_RUN_DIR "/"s + c.folder);
      std::filesystem::create_symlink("/dev/full", TARV_RUN_DIR "/"s + c.full);
      int32_t result = 0;
      (void)console_of([&] { result = save(same_call ? bytes + "x" : bytes); });
      const bool later = !same_call && c.log == "error image num\n"s;
      EXPECT_EQ(result, later ? 0 : -1);
      if (later) {
        EXPECT_EQ(save("x"), -1);
      }
      EXPECT_NE(run_file("tarv_log").find(c.log), std::string::npos);
      EXPECT_EQ(ginfo->write_ctx, nullptr);
      EXPECT_EQ(ginfo->wfd, -1);
      EXPECT_EQ(sim_restart(folder_), 0u);
    }
  }
}

// Sizes that wrap can announce images which never arrive. No reader may find them: neither behind the end of
// a full store, nor at its beginning.
TEST_F(Intake, NothingStandsBehindAFullStore) {
  const std::string bytes = package({{"system", 8192}, {"modem", 8192}, {"system", 16384}});
  start_for(bytes);
  ASSERT_EQ(save(bytes), 0);
  EXPECT_EQ(vexo_tarv_check_flash(), 0);
  ginfo->head.images[ginfo->head.image_num++] = ginfo->head.images[0];
  EXPECT_EQ(vexo_tarv_check_flash(), -1);
  EXPECT_EQ(sim_restart(folder_), 0u);
}

}  // namespace
