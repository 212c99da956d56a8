#include "restore/blocks.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "base/retry.h"
#include "restore/fault.h"
#include "store/head_record.h"

namespace restore {

namespace {

int64_t place_of(const device& on, uint32_t block) {
  return static_cast<int64_t>(block) * on.erase_size();
}

int query_ecc(const device& on, mtd_ecc_counters& counters) {
  if (retry_interrupted([&] { return mtd_device_ecc(on.fd(), counters); }) == 0) return 0;
  return system_fault("cannot read the ECC counters of \"%s\"", on.partition().name);
}

int seek(const device& on, int64_t offset) {
  const auto target = static_cast<off_t>(offset);
  if (retry_interrupted([&] { return mtd_device_seek(on.fd(), target, SEEK_SET); }) == target) return 0;
  return system_fault("cannot go to byte %lld of \"%s\"", static_cast<long long>(offset),
                      on.partition().name);
}

}  // namespace

buffer allocate(size_t bytes) {
  return buffer(static_cast<uint8_t*>(malloc(bytes)));
}

device::device(const mtd_partition& partition, mtd_access access)
    : partition_(partition),
      fd_(retry_interrupted([&] { return mtd_device_open(partition.index, access); })) {
  if (fd_ < 0) system_fault("cannot open \"%s\", /dev/mtd%d", partition.name, partition.index);
}

// What a close reports comes too late and tells nothing: each block was read back, and will be once more.
device::~device() {
  if (fd_ >= 0) (void)!mtd_device_close(fd_);
}

bool has_sound_geometry(const mtd_partition& partition) {
  const bool sound = partition.write_size > 0 && partition.erase_size >= sizeof(store_head_record) &&
                     partition.erase_size % partition.write_size == 0 &&
                     partition.size >= partition.erase_size;
  if (!sound) {
    fault("\"%s\" has %u bytes in erase blocks of %u and pages of %u: that is no NAND flash", partition.name,
          partition.size, partition.erase_size, partition.write_size);
  }
  return sound;
}

int is_marked_bad(const device& from, uint32_t block) {
  const int answer = retry_interrupted([&] { return mtd_device_is_bad(from.fd(), place_of(from, block)); });
  if (answer >= 0) return answer > 0 ? 1 : 0;
  return system_fault("cannot tell whether block %u of \"%s\" is bad", block, from.partition().name);
}

int read_bytes(const device& from, int64_t offset, void* data, uint32_t length, bool& clean) {
  mtd_ecc_counters before = {};
  mtd_ecc_counters after = {};
  if (query_ecc(from, before) != 0 || seek(from, offset) != 0) return -1;
  const ssize_t n = retry_interrupted([&] { return mtd_device_read(from.fd(), data, length); });
  clean = n == static_cast<ssize_t>(length);
  if (!clean) return 0;
  if (query_ecc(from, after) != 0) return -1;
  clean = before.failed == after.failed;
  return 0;
}

int read_block(const device& from, uint32_t block, uint8_t* data, bool& counts) {
  counts = false;
  const int bad = is_marked_bad(from, block);
  if (bad != 0) return bad < 0 ? -1 : 0;
  return read_bytes(from, place_of(from, block), data, from.erase_size(), counts);
}

bool erase_block(const device& on, uint32_t block) {
  const auto start = static_cast<uint32_t>(place_of(on, block));
  return retry_interrupted([&] { return mtd_device_erase(on.fd(), start, on.erase_size()); }) == 0;
}

void program_block(const device& on, uint32_t block, const uint8_t* data, uint32_t length) {
  const auto target = static_cast<off_t>(place_of(on, block));
  // Nothing is programmed where the position may be another one.
  if (retry_interrupted([&] { return mtd_device_seek(on.fd(), target, SEEK_SET); }) != target) return;
  (void)!retry_interrupted([&] { return mtd_device_write(on.fd(), data, length); });
}

int count_good_blocks(const device& on, uint32_t first, uint32_t& good) {
  good = 0;
  for (uint32_t block = first; block < on.blocks(); ++block) {
    const int bad = is_marked_bad(on, block);
    if (bad < 0) return -1;
    if (bad == 0) ++good;
  }
  return 0;
}

bool is_erased(const uint8_t* data, size_t length) {
  return length == 0 || (data[0] == 0xFF && memcmp(data, data + 1, length - 1) == 0);
}

}  // namespace restore
