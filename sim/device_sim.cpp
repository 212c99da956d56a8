// The seam to flash, answered from a simulated module: the folder that the environment variable TARVOLIN_SIM
// names.
//
// Counts every operation (file "counts" in the folder, written when the process ends) and lets the faults of
// the file "faults" strike.
#include "sim/device_sim.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <string>

#include "mtd/device.h"
#include "sim/nand_model.h"

namespace {

struct handle {
  nand_partition* partition = nullptr;
  mtd_access access = mtd_access::read_only;
  int64_t position = 0;
};

struct simulation {
  std::string folder;
  nand_model nand;
  fault_plan faults;
  std::map<int, handle> handles;      // by descriptor
  std::ofstream trace;                // a line for each operation, when the folder has a file of that name
  nand_partition* failing = nullptr;  // where a block is to be marked bad once the operation in hand is over
  uint32_t failing_block = 0;
};

simulation* current = nullptr;

// Ends an operation that leaves its block marked bad.
void mark_failing_block() {
  if (current->failing != nullptr) current->nand.mark_bad(*current->failing, current->failing_block);
  current->failing = nullptr;
}

void save_struck() {
  const std::vector<std::string> lines = current->faults.struck();
  if (lines.empty()) return;
  std::ofstream file(current->folder + "/struck");
  for (const std::string& line : lines) file << line << '\n';
}

void save_counts() {
  mark_failing_block();
  save_struck();
  FILE* const file = fopen((current->folder + "/counts").c_str(), "we");
  if (file == nullptr) return;
  for (size_t i = 0; i < kFlashOps; ++i) {
    fprintf(file, "%s %llu\n", kFlashOpNames[i],
            static_cast<unsigned long long>(current->faults.counts()[i]));
  }
  fclose(file);
}

void start(const std::string& folder) {
  static const int saves_at_exit = atexit(save_counts);
  (void)saves_at_exit;
  current = new simulation;
  current->folder = folder;
  current->nand.load(folder);
  current->faults.load(folder + "/faults");
  current->trace.open(folder + "/trace", std::ios::in | std::ios::out);
}

simulation& sim() {
  if (current == nullptr) {
    const char* const folder = getenv("TARVOLIN_SIM");
    start(folder != nullptr ? folder : ".");
  }
  return *current;
}

[[noreturn]] void lose_power() {
  save_counts();
  _exit(kPowercutExit);
}

// The open handle of `fd`, or null with EBADF.
handle* find_handle(int fd) {
  const auto found = sim().handles.find(fd);
  if (found != sim().handles.end()) return &found->second;
  errno = EBADF;
  return nullptr;
}

// Counts the operation. Returns false with errno when a fault keeps it from being done at all; `effect` says
// what else is to go wrong.
bool begin(flash_op op, const handle* on, int64_t offset, fault_effect& effect) {
  const std::string name = on != nullptr ? on->partition->name : "";
  const int64_t block = on != nullptr ? offset / sim().nand.erase_size() : -1;
  const fault_strike strike = sim().faults.next(op, name, block);
  mark_failing_block();
  effect = strike.effect;
  if (strike.marks_bad && on != nullptr) {
    sim().failing = on->partition;
    sim().failing_block = static_cast<uint32_t>(block);
  }
  if (sim().trace.is_open())
    sim().trace << kFlashOpNames[static_cast<size_t>(op)] << ' ' << name << ' ' << block << std::endl;
  switch (effect) {
    case fault_effect::refused:
      errno = EIO;
      return false;
    case fault_effect::interrupted:
      errno = EINTR;
      return false;
    case fault_effect::unsupported:
      errno = EOPNOTSUPP;
      return false;
    case fault_effect::no_memory:
      errno = ENOMEM;
      return false;
    default:
      return true;
  }
}

// For the operations that a fault can only fail or end; `effect` is left at "none" or "bad".
bool begin_plain(flash_op op, const handle* on, int64_t offset, fault_effect& effect) {
  if (!begin(op, on, offset, effect)) return false;
  if (effect == fault_effect::powercut) lose_power();
  if (effect == fault_effect::none || (effect == fault_effect::bad && op == flash_op::badblock)) return true;
  errno = EIO;
  return false;
}

bool begin_plain(flash_op op, const handle* on, int64_t offset) {
  fault_effect effect = fault_effect::none;
  return begin_plain(op, on, offset, effect);
}

int failed() {
  errno = EIO;
  return -1;
}

// Half of `length`, in whole pages, at least one unless there is none.
size_t half(size_t length) {
  const size_t page = sim().nand.page_size();
  if (length < page) return length / 2;
  return std::max(page, length / 2 / page * page);
}

}  // namespace

size_t sim_restart(const std::string& folder) {
  size_t left_open = 0;
  if (current != nullptr) {
    left_open = current->handles.size();
    for (const auto& [fd, unused] : current->handles) close(fd);
    delete current;
  }
  start(folder);
  return left_open;
}

const flash_counts& sim_counts() {
  return sim().faults.counts();
}

ssize_t mtd_device_list(char* text, size_t capacity) {
  if (!begin_plain(flash_op::list, nullptr, 0)) return -1;
  std::string list = "dev:    size   erasesize  name\n";
  for (const nand_partition& partition : sim().nand.partitions()) {
    char line[128];
    snprintf(line, sizeof line, "mtd%d: %08x %08x \"%s\"\n", partition.index, partition.size,
             sim().nand.erase_size(), partition.name.c_str());
    list += line;
  }
  const size_t n = std::min(capacity, list.size());
  memcpy(text, list.data(), n);
  return static_cast<ssize_t>(n);
}

int mtd_device_open(int index, mtd_access access) {
  if (!begin_plain(flash_op::open, nullptr, 0)) return -1;
  nand_partition* const partition = sim().nand.open(index);
  if (partition == nullptr) return -1;
  const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
  if (fd >= 0) sim().handles[fd] = {partition, access, 0};
  return fd;
}

int mtd_device_close(int fd) {
  const handle* const found = find_handle(fd);
  if (found == nullptr) return -1;
  const bool done = begin_plain(flash_op::close, found, found->position);
  sim().handles.erase(fd);
  return close(fd) == 0 && done ? 0 : -1;
}

int mtd_device_geometry(int fd, mtd_geometry& geometry) {
  const handle* const found = find_handle(fd);
  if (found == nullptr || !begin_plain(flash_op::geometry, found, 0)) return -1;
  geometry = {found->partition->size, sim().nand.erase_size(), sim().nand.page_size()};
  return 0;
}

int mtd_device_is_bad(int fd, int64_t offset) {
  const handle* const found = find_handle(fd);
  fault_effect effect = fault_effect::none;
  if (found == nullptr || !begin_plain(flash_op::badblock, found, offset, effect)) return -1;
  return effect == fault_effect::bad ? 1 : sim().nand.is_bad(*found->partition, offset);
}

int mtd_device_erase(int fd, uint32_t start, uint32_t length) {
  const handle* const found = find_handle(fd);
  fault_effect effect = fault_effect::none;
  if (found == nullptr || !begin(flash_op::erase, found, start, effect)) return -1;
  if (found->access != mtd_access::read_write) {
    errno = EPERM;
    return -1;
  }
  if (effect == fault_effect::fail) return failed();
  const int result = sim().nand.erase(*found->partition, start, length);
  if (effect == fault_effect::powercut) {
    if (result == 0)
      sim().nand.tear_page(*found->partition, start, std::string(sim().nand.page_size(), 0).data());
    lose_power();
  }
  return effect == fault_effect::fail_late ? failed() : result;
}

int mtd_device_ecc(int fd, mtd_ecc_counters& counters) {
  const handle* const found = find_handle(fd);
  if (found == nullptr || !begin_plain(flash_op::ecc, found, found->position)) return -1;
  counters = {found->partition->ecc_corrected, found->partition->ecc_failed};
  return 0;
}

off_t mtd_device_seek(int fd, off_t offset, int whence) {
  handle* const found = find_handle(fd);
  if (found == nullptr || !begin_plain(flash_op::seek, found, found->position)) return -1;
  const int64_t base = whence == SEEK_CUR ? found->position : whence == SEEK_END ? found->partition->size : 0;
  if (base + offset < 0 || base + offset > found->partition->size) {
    errno = EINVAL;
    return -1;
  }
  found->position = base + offset;
  return static_cast<off_t>(found->position);
}

ssize_t mtd_device_read(int fd, void* data, size_t length) {
  handle* const found = find_handle(fd);
  fault_effect effect = fault_effect::none;
  if (found == nullptr || !begin(flash_op::read, found, found->position, effect)) return -1;
  if (effect == fault_effect::powercut) lose_power();
  if (effect == fault_effect::fail || effect == fault_effect::fail_late) return failed();
  const size_t wanted = effect == fault_effect::short_count ? half(length) : length;
  const ssize_t n = sim().nand.read(*found->partition, found->position, data, wanted);
  found->position += n;
  if (effect == fault_effect::corrected) ++found->partition->ecc_corrected;
  if (effect == fault_effect::uncorrectable) ++found->partition->ecc_failed;
  const bool wrong = effect == fault_effect::uncorrectable || effect == fault_effect::corrupt;
  if (wrong && n > 0) static_cast<uint8_t*>(data)[n / 2] ^= 0x10;
  return n;
}

ssize_t mtd_device_write(int fd, const void* data, size_t length) {
  handle* const found = find_handle(fd);
  fault_effect effect = fault_effect::none;
  if (found == nullptr || !begin(flash_op::program, found, found->position, effect)) return -1;
  if (found->access != mtd_access::read_write) {
    errno = EBADF;
    return -1;
  }
  std::string bytes(static_cast<const char*>(data), length);
  if (effect == fault_effect::corrupt) bytes[length / 2] = static_cast<char>(bytes[length / 2] ^ 0x10);
  const bool in_half =
      effect == fault_effect::short_count || effect == fault_effect::fail || effect == fault_effect::powercut;
  const ssize_t n =
      sim().nand.program(*found->partition, found->position, bytes.data(), in_half ? half(length) : length);
  if (effect == fault_effect::powercut) {
    const int64_t torn = found->position + n;
    if (n > 0 && n < static_cast<ssize_t>(length))
      sim().nand.tear_page(*found->partition, torn, bytes.data() + n);
    lose_power();
  }
  if (effect == fault_effect::fail || effect == fault_effect::fail_late) return failed();
  if (n > 0) found->position += n;
  return n;
}
