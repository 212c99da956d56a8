// The package maker's readers, of packages and of manifests. Input: a byte (bit 0: the head is mended, bit 1:
// the file's length), then the file.
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>

#include "tests/fuzz/fuzz.h"
#include "tools/tarv-pkg/check.h"
#include "tools/tarv-pkg/diff.h"
#include "tools/tarv-pkg/manifest.h"
#include "tools/tarv-pkg/package_file.h"
#include "tools/tarv-pkg/show.h"

using namespace tools::tarv_pkg;

constexpr uint64_t kLongest = 1 << 16;  // of a file that is made as long as its head says

static std::string make_file(uint8_t choices, std::string file) {
  if ((choices & 1) != 0) file.resize(std::max(file.size(), sizeof(package_head)));
  if (file.size() < sizeof(package_head)) return file;
  auto& head = *reinterpret_cast<package_head*>(file.data());
  if ((choices & 1) != 0) mend(head);
  if ((choices & 2) != 0) file.resize(std::min(described_length(head), kLongest));
  return file;
}

static void try_out(void (*work)()) {
  try {
    work();
  } catch (const tools::refusal& fault) {
    REQUIRE(*fault.what() != '\0');
  }
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  static const int fd = memfd_create("package", MFD_CLOEXEC);
  static const std::string path = "/proc/self/fd/" + std::to_string(fd);
  const std::string file = make_file(data[0], {reinterpret_cast<const char*>(data) + 1, size - 1});
  const bool written = ftruncate(fd, 0) == 0 && pwrite(fd, file.data(), file.size(), 0) >= 0;
  REQUIRE(written);
  try_out([] { show_package(path, false); });
  try_out([] { show_package(path, true); });
  try_out([] { check_package(path); });
  try_out([] { (void)read_manifest(path); });
  try_out([] {
    const bool differs_from_itself = diff_packages(path, path, true);
    REQUIRE(!differs_from_itself);
  });
  return 0;
}
