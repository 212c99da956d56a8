// Partitions of a module as files in a folder: NAME.bin, the whole partition, and NAME.bad, the numbers of
// its bad blocks, one a line, which may be missing.
#ifndef TARVOLIN_TOOLS_TARV_STORE_DUMPS_H
#define TARVOLIN_TOOLS_TARV_STORE_DUMPS_H

#include <cstdint>
#include <string>
#include <vector>

struct partition_dump {
  std::string name;
  std::string path;       // of NAME.bin
  std::string bad_list;   // path of NAME.bad, be it there or not
  uint32_t size;          // bytes, a multiple of the erase size
  std::vector<bool> bad;  // one for each block
};

// The dumps of store partitions in `folder`. Throws a refusal when there are none, and for a dump or list
// that cannot be what it should.
[[nodiscard]] std::vector<partition_dump> find_dumps(const std::string& folder, uint32_t erase_size);

#endif
