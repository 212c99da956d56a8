#include "sim/nand_model.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

namespace {

enum page_state : uint8_t { kErased = 0, kProgrammed = 1, kTorn = 2 };

[[noreturn]] void stop(const std::string& what) {
  fprintf(stderr, "sim: %s\n", what.c_str());
  exit(kBadModuleExit);
}

void must(bool done, const char* what) {
  if (!done) stop(std::string(what) + ": " + strerror(errno));
}

void read_whole(int fd, void* data, size_t length, int64_t offset) {
  must(pread(fd, data, length, offset) == static_cast<ssize_t>(length),
       "flash file shorter than its partition");
}

void write_whole(int fd, const void* data, size_t length, int64_t offset) {
  must(pwrite(fd, data, length, offset) == static_cast<ssize_t>(length), "flash file");
}

bool all_ones(const std::vector<uint8_t>& bytes) {
  return std::all_of(bytes.begin(), bytes.end(), [](uint8_t b) { return b == 0xFF; });
}

bool is_empty(int fd) {
  struct stat info = {};
  must(fstat(fd, &info) == 0, "flash file");
  return info.st_size == 0;
}

}  // namespace

void nand_model::load(const std::string& folder) {
  folder_ = folder;
  if (access((folder + "/module.conf").c_str(), R_OK) != 0) stop("no module.conf in \"" + folder + "\"");
  load_lines("module.conf");
  load_lines("marked");
}

void nand_model::load_lines(const std::string& name) {
  std::ifstream file(folder_ + "/" + name);
  for (std::string line; std::getline(file, line);) {
    if (!line.empty() && line[0] != '#' && !parse_line(line)) {
      stop(std::string(name).append(": cannot understand \"").append(line).append("\""));
    }
  }
}

nand_model::~nand_model() {
  for (const nand_partition& partition : partitions_) {
    if (partition.data_fd >= 0) close(partition.data_fd);
    if (partition.pages_fd >= 0) close(partition.pages_fd);
  }
}

bool nand_model::parse_line(const std::string& line) {
  std::istringstream words(line);
  std::string key, name;
  words >> key;
  if (key == "erase_size") return static_cast<bool>(words >> erase_size_);
  if (key == "page_size") return static_cast<bool>(words >> page_size_);
  if (key == "rules") {
    words >> name;
    strict_ = name == "strict";
    return strict_ || name == "kernel";
  }
  if (key == "partition") {
    nand_partition added;
    if (!(words >> added.index >> added.name >> added.size)) return false;
    partitions_.push_back(added);
    return added.size % erase_size_ == 0;
  }
  if (key != "bad" || !(words >> name)) return false;
  const auto found = std::find_if(partitions_.begin(), partitions_.end(),
                                  [&](const nand_partition& partition) { return partition.name == name; });
  if (found == partitions_.end()) return false;
  for (uint32_t block; words >> block;) found->bad.insert(block);
  return words.eof();
}

nand_partition* nand_model::open(int index) {
  for (nand_partition& partition : partitions_) {
    if (partition.index != index) continue;
    if (partition.data_fd < 0) open_files(partition);
    return &partition;
  }
  errno = ENOENT;
  return nullptr;
}

void nand_model::open_files(nand_partition& partition) const {
  const std::string stem = folder_ + "/mtd" + std::to_string(partition.index);
  partition.data_fd = ::open((stem + ".bin").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  partition.pages_fd = ::open((stem + ".pages").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  must(partition.data_fd >= 0 && partition.pages_fd >= 0, stem.c_str());
  if (is_empty(partition.data_fd)) {
    const std::vector<uint8_t> block(erase_size_, 0xFF);
    for (uint32_t at = 0; at < partition.size; at += erase_size_) {
      write_whole(partition.data_fd, block.data(), block.size(), at);
    }
  }
  if (!is_empty(partition.pages_fd)) return;
  std::vector<uint8_t> page(page_size_);
  std::vector<uint8_t> states(partition.size / page_size_);
  for (size_t i = 0; i < states.size(); ++i) {
    read_whole(partition.data_fd, page.data(), page.size(), static_cast<int64_t>(i) * page_size_);
    states[i] = all_ones(page) ? kErased : kProgrammed;
  }
  write_whole(partition.pages_fd, states.data(), states.size(), 0);
}

void nand_model::violate(const nand_partition& partition, int64_t offset, const char* what) const {
  if (!strict_) return;
  char line[256];
  snprintf(line, sizeof line, "%s at 0x%08llx of %s", what, static_cast<unsigned long long>(offset),
           partition.name.c_str());
  std::ofstream(folder_ + "/violation") << line << '\n';
  fprintf(stderr, "sim: VIOLATION: %s\n", line);
  _exit(kViolationExit);
}

int nand_model::is_bad(const nand_partition& partition, int64_t offset) const {
  if (offset < 0 || offset >= partition.size) {
    errno = EINVAL;
    return -1;
  }
  return partition.bad.count(static_cast<uint32_t>(offset / erase_size_)) != 0 ? 1 : 0;
}

int nand_model::erase(nand_partition& partition, uint32_t start, uint32_t length) {
  const uint64_t end = static_cast<uint64_t>(start) + length;
  if (start % erase_size_ != 0 || length % erase_size_ != 0 || start >= partition.size ||
      end > partition.size) {
    errno = EINVAL;
    return -1;
  }
  const std::vector<uint8_t> block(erase_size_, 0xFF);
  const std::vector<uint8_t> erased(erase_size_ / page_size_, kErased);
  std::vector<uint8_t> found(erased.size());
  for (uint32_t at = start; at < end; at += erase_size_) {
    if (is_bad(partition, at) != 0) {
      errno = EIO;
      return -1;
    }
    read_whole(partition.pages_fd, found.data(), found.size(), at / page_size_);
    if (found == erased) continue;
    write_whole(partition.data_fd, block.data(), block.size(), at);
    write_whole(partition.pages_fd, erased.data(), erased.size(), at / page_size_);
  }
  return 0;
}

ssize_t nand_model::read(nand_partition& partition, int64_t offset, void* data, size_t length) {
  const size_t count = std::min<size_t>(length, static_cast<size_t>(partition.size - offset));
  if (count == 0) return 0;
  read_whole(partition.data_fd, data, count, offset);
  const int64_t first_page = offset / page_size_;
  const int64_t last_page = (offset + static_cast<int64_t>(count) - 1) / page_size_;
  std::vector<uint8_t> states(static_cast<size_t>(last_page - first_page + 1));
  read_whole(partition.pages_fd, states.data(), states.size(), first_page);
  partition.ecc_failed += static_cast<uint32_t>(std::count(states.begin(), states.end(), kTorn));
  return static_cast<ssize_t>(count);
}

void nand_model::program_page(nand_partition& partition, int64_t offset, const uint8_t* data) {
  uint8_t state = kErased;
  read_whole(partition.pages_fd, &state, 1, offset / page_size_);
  std::vector<uint8_t> held(data, data + page_size_);
  if (state != kErased) {
    violate(partition, offset, "program of a page that is not erased");
    std::vector<uint8_t> before(page_size_);
    read_whole(partition.data_fd, before.data(), before.size(), offset);
    for (size_t i = 0; i < held.size(); ++i) held[i] = held[i] & before[i];
  }
  write_whole(partition.data_fd, held.data(), held.size(), offset);
  state = std::max<uint8_t>(state, kProgrammed);
  write_whole(partition.pages_fd, &state, 1, offset / page_size_);
}

ssize_t nand_model::program(nand_partition& partition, int64_t offset, const void* data, size_t length) {
  if (offset % page_size_ != 0 || length % page_size_ != 0) {
    violate(partition, offset, "program that is not in whole pages");
    errno = EINVAL;
    return -1;
  }
  if (offset >= partition.size && length > 0) {
    errno = ENOSPC;
    return -1;
  }
  const size_t count = std::min<size_t>(length, static_cast<size_t>(partition.size - offset));
  for (size_t done = 0; done < count; done += page_size_) {
    const int64_t at = offset + static_cast<int64_t>(done);
    if (is_bad(partition, at) != 0) violate(partition, at, "program of a bad block");
    program_page(partition, at, static_cast<const uint8_t*>(data) + done);
  }
  return static_cast<ssize_t>(count);
}

void nand_model::mark_bad(nand_partition& partition, uint32_t block) const {
  if (!partition.bad.insert(block).second) return;
  std::ofstream(folder_ + "/marked", std::ios::app) << "bad " << partition.name << ' ' << block << '\n';
}

void nand_model::tear_page(nand_partition& partition, int64_t offset, const void* data) {
  const uint8_t state = kTorn;
  write_whole(partition.data_fd, data, page_size_ / 2, offset);
  write_whole(partition.pages_fd, &state, 1, offset / page_size_);
}
