#include "tools/tarv-store/dumps.h"

#include <charconv>
#include <filesystem>
#include <fstream>

#include "store/partition_groups.h"
#include "tools/common/refusal.h"

namespace {

// Reads the numbers of the list, if it is there, into the dump's table.
void read_bad_list(partition_dump& dump) {
  const std::string& path = dump.bad_list;
  std::ifstream list(path);
  const bool missing = !list && !std::filesystem::exists(path);
  if (missing) return;
  for (std::string line; std::getline(list, line);) {
    line.erase(line.find_last_not_of(" \t\r") + 1);
    if (line.empty()) continue;
    const char* const end = line.data() + line.size();
    size_t block = 0;
    const auto [stopped, error] = std::from_chars(line.data(), end, block);
    if (error != std::errc() || stopped != end || block >= dump.bad.size()) {
      throw refusal(in_quotes(path) + ": " + in_quotes(line) + " is no block number from 0 to " +
                    std::to_string(dump.bad.size() - 1));
    }
    dump.bad[block] = true;
  }
  if (!list.eof()) throw refusal("cannot read " + in_quotes(path));
}

std::string file_of(const std::string& folder, const std::string& name, const char* ending) {
  return folder + "/" + name + ending;
}

partition_dump find_dump(const std::string& folder, const std::string& name, uint32_t erase_size) {
  partition_dump dump = {name, file_of(folder, name, ".bin"), file_of(folder, name, ".bad"), 0, {}};
  if (!std::filesystem::is_regular_file(dump.path)) throw refusal(in_quotes(dump.path) + " is no dump");
  const uintmax_t size = std::filesystem::file_size(dump.path);
  if (size == 0 || size > UINT32_MAX || size % erase_size != 0) {
    throw refusal(in_quotes(dump.path) + " has " + std::to_string(size) +
                  " bytes, which is no whole number of blocks of " + std::to_string(erase_size) +
                  " bytes; is it complete, without OOB, and --erase-size right?");
  }
  dump.size = static_cast<uint32_t>(size);
  dump.bad.resize(size / erase_size);
  read_bad_list(dump);
  return dump;
}

}  // namespace

std::vector<partition_dump> find_dumps(const std::string& folder, uint32_t erase_size) {
  std::vector<partition_dump> dumps;
  for (const std::string name : store_list) {
    if (!std::filesystem::exists(file_of(folder, name, ".bin"))) continue;
    dumps.push_back(find_dump(folder, name, erase_size));
  }
  if (dumps.empty()) throw refusal("no dump in " + in_quotes(folder) + ": it should hold userdata.bin");
  return dumps;
}
