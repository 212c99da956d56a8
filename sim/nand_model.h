// A module's raw NAND flash, held in a folder: what survives a run survives the process.
//
//   module.conf   geometry, partitions and bad blocks
//   mtd<N>.bin    the bytes of partition N; made, erased, when missing
//   mtd<N>.pages  one byte a page: erased, programmed or torn; taken from the bytes when missing
//   marked        blocks that were marked bad by faults: lines like module.conf's "bad"
//
// The model is strict: what real flash would damage silently (a program of a bad block, of part of a page, of
// a page that was not erased) ends the process with kViolationExit and leaves a line in the file "violation".
// With "rules kernel" it does what the kernel's driver does instead.
#ifndef TARVOLIN_SIM_NAND_MODEL_H
#define TARVOLIN_SIM_NAND_MODEL_H

#include <sys/types.h>

#include <cstdint>
#include <set>
#include <string>
#include <vector>

constexpr int kViolationExit = 86;
constexpr int kPowercutExit = 97;
constexpr int kBadModuleExit = 98;  // the folder's files cannot be used

struct nand_partition {
  int index = 0;
  std::string name;
  uint32_t size = 0;       // bytes
  std::set<uint32_t> bad;  // block numbers
  int data_fd = -1;
  int pages_fd = -1;
  uint32_t ecc_corrected = 0;
  uint32_t ecc_failed = 0;
};

class nand_model {
 public:
  nand_model() = default;
  nand_model(const nand_model&) = delete;
  nand_model& operator=(const nand_model&) = delete;
  ~nand_model();

  // Reads the folder's module.conf; ends the process with a message when it cannot be understood.
  void load(const std::string& folder);

  uint32_t erase_size() const { return erase_size_; }
  uint32_t page_size() const { return page_size_; }
  const std::vector<nand_partition>& partitions() const { return partitions_; }

  // The partition with this index, its files open, or null.
  nand_partition* open(int index);

  // Each returns 0 or a count, or -1 with errno, as the kernel does. Offsets are bytes within the partition.
  int is_bad(const nand_partition& partition, int64_t offset) const;
  int erase(nand_partition& partition, uint32_t start, uint32_t length);
  ssize_t read(nand_partition& partition, int64_t offset, void* data, size_t length);
  ssize_t program(nand_partition& partition, int64_t offset, const void* data, size_t length);

  // Marks the block bad, for this process and those after it.
  void mark_bad(nand_partition& partition, uint32_t block) const;

  // Leaves the page at `offset` as lost power leaves it: half programmed, uncorrectable from then on.
  void tear_page(nand_partition& partition, int64_t offset, const void* data);

 private:
  void load_lines(const std::string& name);
  bool parse_line(const std::string& line);
  void open_files(nand_partition& partition) const;
  // Ends the process over what flash does not forgive, unless the kernel's rules are wanted.
  void violate(const nand_partition& partition, int64_t offset, const char* what) const;
  void program_page(nand_partition& partition, int64_t offset, const uint8_t* data);

  std::string folder_;
  uint32_t erase_size_ = 131072;
  uint32_t page_size_ = 2048;
  bool strict_ = true;
  std::vector<nand_partition> partitions_;
};

#endif
