// The road of a response to flash: response intake, package intake, and the checks of what they stored, on
// simulated flash. Input: how the response is cut into pieces, then either its raw bytes or what a package is
// made from, so that mutations get past the head check.
#include <fcntl.h>
#include <fuzzer/FuzzedDataProvider.h>
#include <sys/mount.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "download/completion.h"
#include "download/response.h"
#include "main/run/result_files.h"
#include "package/images.h"
#include "package/readback_check.h"
#include "sim/device_sim.h"
#include "store/stream.h"
#include "tests/fuzz/fuzz.h"

namespace fs = std::filesystem;

namespace {

// The store takes two blocks, one, none and one; "userdata" begins with bad blocks. "recovery" has two good
// ones.
constexpr char kModule[] =
    "erase_size 32768\npage_size 32768\npartition 0 userdata 10649600\npartition 1 recoveryfs 4227072\n"
    "partition 2 recovery 98304\npartition 3 vexonv 2129920\nbad userdata 0 2\nbad recovery 1\n";
constexpr size_t kLongestBody = size_t{160} * 1024;  // more than the store takes
constexpr const char* kNames[] = {"system", "modem",    "systemdata", "boot",
                                  "sbl",    "recovery", "recoveryfs", "userdata"};

// Returns a descriptor of the file that holds "userdata".
int start_module() {
  REQUIRE(fs::exists("/host") && mount("tmpfs", "/tmp", "tmpfs", 0, nullptr) == 0);
  fs::create_directories("/tmp/flash");
  fs::create_directories(TARV_RUN_DIR);
  std::ofstream("/tmp/flash/module.conf") << kModule;
  sim_restart("/tmp/flash");
  REQUIRE(mtd_load_partitions() == 4);  // which opens the files of all partitions
  return open("/tmp/flash/mtd0.bin", O_RDONLY | O_CLOEXEC);
}

int lowest_free_descriptor() {
  const int fd = dup(STDIN_FILENO);
  close(fd);
  return fd;
}

// Makes an image: its table entry, and its data as far as the body has room. Returns the data.
std::string make_image(FuzzedDataProvider& in, package_entry& entry, const std::string& fill, size_t room) {
  strcpy(entry.name, in.PickValueInArray(kNames));
  const auto kind = in.ConsumeIntegral<uint8_t>();
  entry.file_name[0] = static_cast<char>('A' + kind % 32);
  entry.size = in.ConsumeIntegral<uint16_t>();
  if ((kind & 0x80) != 0) entry.size <<= 16;  // so that sums pass 2^32
  std::string data;
  while (!fill.empty() && data.size() < std::min<size_t>(entry.size, room)) data += fill;
  data.resize(std::min<size_t>(entry.size, room));
  entry.crc = crc32_update((kind & 0x40) != 0 ? 0 : kCrcStart, data.data(), data.size());
  return data;
}

std::string make_response(FuzzedDataProvider& in) {
  package_head head = {};
  strcpy(head.img_version, "31405");
  mend(head);
  const std::string fill = in.ConsumeBytesAsString(16);
  const bool chunked = in.ConsumeBool();
  const bool surplus = in.ConsumeBool();
  head.image_num = in.ConsumeIntegralInRange<uint16_t>(0, kMaxImages);
  std::string body;
  for (uint32_t i = 0; i < head.image_num; ++i) {
    body += make_image(in, head.images[i], fill, kLongestBody - body.size());
  }
  if (head.image_num == 0) strcpy(head.images[0].name, in.PickValueInArray(kNames));
  mend(head);
  char header[64];
  snprintf(header, sizeof header,
           chunked ? "Transfer-Encoding: chunked\r\n\r\n%x\r\n" : "Content-Length: %d\r\n\r\n",
           package_length(head));
  body.resize(std::min<size_t>(body.size(), package_length(head) - kPackageHeadSize));
  return header + std::string(reinterpret_cast<char*>(&head), sizeof head) + body +
         (surplus ? "surplus" : "");
}

// Feeds the response piece by piece; when the list of pieces is used up, in blocks. Returns 0 or -1.
int feed(std::string_view response, const std::string& pieces) {
  for (size_t i = 0; !response.empty(); ++i) {
    const size_t step = i < pieces.size() ? static_cast<uint8_t>(pieces[i]) : 255;
    const std::string piece(response.substr(0, step < 128 ? step + 1 : (step - 127) * 32));
    response.remove_prefix(piece.size());
    if (vexo_tarv_download_handler(piece.data(), static_cast<int>(piece.size())) < 0) return -1;
  }
  return 0;
}

// What the check stage calls right has been received in full.
void examine_checked() {
  for (uint32_t i = 0; i < ginfo->head.image_num; ++i) {
    const package_entry& entry = ginfo->head.images[i];
    REQUIRE(group_of(entry) == kFileGroup || ginfo->image_saved[i] == entry.size);
  }
}

// Nothing outside the run directory and flash, nothing but plain files in it, no armed record.
void examine_traces(int flash) {
  REQUIRE(std::distance(fs::directory_iterator("/tmp"), {}) == 2);
  for (const fs::directory_entry& entry : fs::directory_iterator(TARV_RUN_DIR)) {
    REQUIRE(entry.is_regular_file() && entry.path().filename().native()[0] != '.');
    fs::remove(entry);
  }
  uint32_t magic = 0;
  REQUIRE(pread(flash, &magic, sizeof magic, 32768) == sizeof magic && magic != TARV_RESTORE_MAGIC);
}

}  // namespace

// The simulator ends the process so over what flash does not forgive.
extern "C" [[noreturn]] void __wrap__exit(int) {  // NOLINT(bugprone-reserved-identifier,cert-dcl*)
  fuzz_broken();
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const int flash = start_module();
  const int free_descriptor = lowest_free_descriptor();
  tarv_init_info();
  strcpy(ginfo->revid, "31405");
  FuzzedDataProvider in(data, size);
  const bool raw = in.ConsumeBool();
  const std::string pieces = in.ConsumeBytesAsString(in.ConsumeIntegral<uint8_t>());
  const int taken = feed(raw ? in.ConsumeRemainingBytesAsString() : make_response(in), pieces);
  const bool too_long =
      ginfo->download_status == TARV_DOWNLOAD_DOWNLOADING && ginfo->fileoffset == ginfo->file_len;
  REQUIRE(taken == 0 || too_long || (ginfo->wfd == -1 && ginfo->write_ctx == nullptr));
  REQUIRE(ginfo->saved_total <= ginfo->file_len);
  const int completed = tarv_complete_download("fuzz", false);
  REQUIRE(ginfo->write_ctx == nullptr);
  if (ginfo->wfd >= 0) REQUIRE(ginfo->cur_pt_type == kFileGroup && close(ginfo->wfd) == 0);
  if (taken == 0 && completed == 0 && vexo_tarv_check_flash() == 0 && vexo_tarv_check_file() == 0 &&
      vexo_tarv_check_recovery() == 0) {
    examine_checked();
  }
  REQUIRE(ginfo->read_ctx == nullptr && lowest_free_descriptor() == free_descriptor);
  examine_traces(flash);
  return 0;
}
