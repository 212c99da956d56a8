// What goes wrong on simulated flash, and when: read from a text file, one fault a line. docs/testing.md has
// the format.
#ifndef TARVOLIN_SIM_FAULT_PLAN_H
#define TARVOLIN_SIM_FAULT_PLAN_H

#include <array>
#include <cstdint>
#include <string>
#include <vector>

// The operations of the seam to flash, as they are counted.
enum class flash_op { list, open, close, geometry, badblock, erase, ecc, seek, read, program };
constexpr size_t kFlashOps = 10;
constexpr std::array<const char*, kFlashOps> kFlashOpNames = {
    "list", "open", "close", "geometry", "badblock", "erase", "ecc", "seek", "read", "program"};

enum class fault_effect {
  none,
  fail,           // EIO; a program has landed in half, an erase not at all
  fail_late,      // EIO, though the operation took effect whole
  refused,        // EIO, nothing done
  interrupted,    // EINTR, nothing done
  unsupported,    // EOPNOTSUPP, nothing done
  no_memory,      // ENOMEM, nothing done
  short_count,    // a read or program of the first half, reported as such
  corrupt,        // lands or arrives with one wrong byte, reported as success
  corrected,      // a read that needed ECC
  uncorrectable,  // a read of wrong bytes, reported as success; the ECC counters tell
  bad,            // a query finds a bad block, which is marked so from then on
  powercut,       // the process ends there and then, the operation done in half
};

// The fate of one operation.
struct fault_strike {
  fault_effect effect = fault_effect::none;
  bool marks_bad = false;  // the block is marked bad once the operation is over
};

// Counts of this process, by operation.
using flash_counts = std::array<uint64_t, kFlashOps>;

class fault_plan {
 public:
  // Reads the plan. A missing file is an empty plan; a line that cannot be understood ends the process with a
  // message.
  void load(const std::string& path);

  // Counts an operation on block `block` of partition `partition` (block -1 where it has none) and returns
  // what is to go wrong with it.
  fault_strike next(flash_op op, const std::string& partition, int64_t block);

  // The lines of the plan that have struck in this process.
  std::vector<std::string> struck() const;

  const flash_counts& counts() const { return counts_; }
  uint64_t total() const;

 private:
  struct fault {
    int op = -1;            // -1: any operation
    uint64_t at = 0;        // the operation's number in this process, from 1; 0: by place
    std::string partition;  // by place
    int64_t block = -1;     // by place
    uint64_t spared = 0;    // by place: operations there that still pass
    fault_strike strike;
    uint64_t times = 1;  // how often it still strikes
    std::string line;
    bool has_struck = false;
  };
  static bool parse(const std::string& line, fault& parsed);
  bool fits(const fault& candidate, flash_op op, const std::string& partition, int64_t block) const;

  std::vector<fault> faults_;
  flash_counts counts_ = {};
};

#endif
