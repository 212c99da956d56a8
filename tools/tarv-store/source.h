// Where this tool's flash is: the other side of mtd/device.h. It is the module's own flash until dumps are
// chosen. Either way it can only be read: a partition cannot be opened for writing, nothing is written or
// erased.
#ifndef TARVOLIN_TOOLS_TARV_STORE_SOURCE_H
#define TARVOLIN_TOOLS_TARV_STORE_SOURCE_H

#include <cstdint>
#include <optional>
#include <string>

namespace tools::tarv_store {

// Puts the dumps in `folder` in the flash's place, for good. `erase_size` and refusals are those of
// find_dumps.
void read_from_dumps(const std::string& folder, std::optional<uint32_t> erase_size);

[[nodiscard]] bool reads_dumps();

// True when `path` is one of the dumps chosen, or the list of bad blocks beside one.
[[nodiscard]] bool is_dump(const std::string& path);

}  // namespace tools::tarv_store

#endif
