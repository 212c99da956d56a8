// The restore, on simulated flash with a hostile record. Input: a byte of choices, the record, then what the
// stream is filled with, over and over.
#include "restore/restore.h"

#include <sys/mount.h>
#include <sys/stat.h>

#include <algorithm>
#include <fstream>
#include <map>

#include "restore/fault.h"
#include "sim/device_sim.h"
#include "store/head_record.h"
#include "tests/fuzz/fuzz.h"

enum choice : uint8_t { kArmed = 1, kFields = 2, kCounts = 4, kCrcs = 8, kKeep = 16, kLastDamaged = 32 };

constexpr uint32_t kBlock = 4096;
constexpr uint32_t kStoreBlocks[] = {4, 2, 2,
                                     2};  // of the stream; "userdata" has a bad one and the head's besides
constexpr const char* kTargets[] = {"system", "modem", "systemdata"};
constexpr uint32_t kTargetBlocks[] = {5, 3, 2};
const std::string kFolder = "/tmp/flash";

static std::string part_file(size_t i) {
  return kFolder + "/mtd" + std::to_string(i);
}

static void put(size_t i, const std::string& bytes) {
  remove((part_file(i) + ".pages").c_str());
  std::ofstream(part_file(i) + ".bin", std::ios::binary) << bytes;
}

static std::string get(size_t i) {
  std::ifstream file(part_file(i) + ".bin", std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

// In memory, since flash is made anew for each input.
static void make_module() {
  const int mounted = mount("tmpfs", "/tmp", "tmpfs", 0, nullptr);
  REQUIRE(mounted == 0);
  mkdir(kFolder.c_str(), 0700);
  std::ofstream(kFolder + "/module.conf")
      << "erase_size 4096\npage_size 512\npartition 0 userdata 24576\n"
         "partition 1 recoveryfs 8192\npartition 2 recovery 8192\n"
         "partition 3 vexonv 8192\npartition 4 system 20480\n"
         "partition 5 modem 12288\npartition 6 systemdata 8192\nbad userdata 0\n";
}

// What a reader of the stream finds under the record's counts.
static std::string stream_of(const store_head_record& record, const std::string (&parts)[4]) {
  std::string stream;
  for (size_t i = 0; i < 3; ++i) stream += parts[i].substr(0, record.ptsavesize[i]);
  return stream + parts[3];
}

static void mend_record(uint8_t choices, store_head_record& record, const std::string (&parts)[4]) {
  if ((choices & kArmed) != 0) record.magic = TARV_RESTORE_MAGIC;
  if ((choices & kFields) != 0) record.image_num = record.image_num % 4 + 1;
  uint32_t total = 0;
  for (uint32_t i = 0; i < std::min(record.image_num, kStoreImagesMax); ++i) {
    store_head_image& image = record.images[i];
    if ((choices & kFields) == 0) continue;
    strcpy(image.name, kTargets[static_cast<uint8_t>(image.name[0]) % 3]);
    image.size %= 13000;
    total += image.size_algin = image.size + store_padding(image.size);
  }
  for (size_t i = 0; i < 3 && (choices & kCounts) != 0; ++i) {
    total -= record.ptsavesize[i] = std::min(total, kStoreBlocks[i] * kBlock);
  }
  const std::string stream = stream_of(record, parts);
  size_t at = 0;
  for (uint32_t i = 0; i < std::min(record.image_num, kStoreImagesMax) && (choices & kCrcs) != 0; ++i) {
    const std::string data = stream.substr(std::min(at, stream.size()), record.images[i].size);
    record.images[i].crc = crc32_update(kCrcStart, data.data(), data.size());
    at += record.images[i].size_algin;
    if ((choices & kLastDamaged) != 0 && i + 1 == record.image_num) ++record.images[i].crc;
  }
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1 + sizeof(store_head_record) + 1) return 0;
  static const bool made = (make_module(), crc32_init_table(), true);
  REQUIRE(made);
  store_head_record record;
  memcpy(&record, data + 1, sizeof record);
  const std::string filling(reinterpret_cast<const char*>(data) + 1 + sizeof record,
                            size - 1 - sizeof record);
  std::string parts[4];
  for (size_t i = 0; i < 4; ++i) {
    while (parts[i].size() < size_t{kStoreBlocks[i]} * kBlock) parts[i] += filling + static_cast<char>(i);
    parts[i].resize(size_t{kStoreBlocks[i]} * kBlock);
  }
  mend_record(data[0], record, parts);
  std::string head(reinterpret_cast<const char*>(&record), sizeof record);
  head.resize(kBlock);
  put(0, std::string(kBlock, '\xff') + head + parts[0]);
  for (size_t i = 1; i < 4; ++i) put(i, parts[i]);
  for (size_t i = 0; i < 3; ++i) put(4 + i, std::string(size_t{kTargetBlocks[i]} * kBlock, '#'));

  sim_restart(kFolder);
  restore::forget_fault();
  restore::options wanted;
  wanted.keep_armed = (data[0] & kKeep) != 0;
  const int status = restore::run_restore(wanted);
  sim_restart(kFolder);

  std::map<std::string, std::string> images;
  const std::string stream = stream_of(record, parts);
  for (uint32_t i = 0, at = 0; status == 0 && i < record.image_num; at += record.images[i++].size_algin) {
    images[record.images[i].name] = stream.substr(at, record.images[i].size);
  }
  REQUIRE(status == 0 || status == restore::kRefused || status == restore::kNothing);
  REQUIRE(status == 0 || *restore::fault_text() != '\0' || status == restore::kNothing);
  for (size_t i = 0; i < 3; ++i) {
    const size_t length = size_t{kTargetBlocks[i]} * kBlock;
    std::string expected(length, '#');
    if (const auto found = images.find(kTargets[i]); found != images.end()) {
      expected = found->second + std::string(length - found->second.size(), '\xff');
    }
    REQUIRE(get(4 + i) == expected);
  }
  const bool disarmed = status == 0 && !wanted.keep_armed;
  REQUIRE(get(0).substr(kBlock) == (disarmed ? std::string(kBlock, '\xff') : head) + parts[0]);
  return 0;
}
