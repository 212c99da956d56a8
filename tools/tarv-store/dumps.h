// Partitions of a module as files in a folder: NAME.bin, the whole partition; NAME.bad, the numbers of its
// bad blocks, one a line, which may be missing; and "sizes", a line "NAME BYTES ERASE-BLOCK" for each
// partition, in decimal, which may be missing, too.
#ifndef TARVOLIN_TOOLS_TARV_STORE_DUMPS_H
#define TARVOLIN_TOOLS_TARV_STORE_DUMPS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tools::tarv_store {

struct partition_dump {
  std::string name;
  std::string path;       // of NAME.bin
  std::string bad_list;   // path of NAME.bad, be it there or not
  uint32_t size;          // bytes, a multiple of the erase size
  std::vector<bool> bad;  // one for each block
};

[[nodiscard]] std::string dump_path(const std::string& folder, const std::string& name);
[[nodiscard]] std::string bad_list_path(const std::string& folder, const std::string& name);
[[nodiscard]] std::string dump_sizes_path(const std::string& folder);
[[nodiscard]] std::string sizes_line(const std::string& name, uint32_t size, uint32_t erase_size);

// True for a power of two from 512 to 16777216.
[[nodiscard]] bool is_erase_size(uint32_t number);

// The dumps of store partitions in `folder`. `erase_size` is the user's, or nothing; then "sizes" tells it,
// and without that it is 131072; all dumps have the one that comes out there. Throws a refusal when there are
// none, and for a dump or list that cannot be what it should. Only regular files are opened.
[[nodiscard]] std::vector<partition_dump> find_dumps(const std::string& folder,
                                                     std::optional<uint32_t>& erase_size);

}  // namespace tools::tarv_store

#endif
