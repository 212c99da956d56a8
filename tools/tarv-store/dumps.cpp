#include "tools/tarv-store/dumps.h"

#include <charconv>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "store/partition_groups.h"
#include "tools/common/refusal.h"

namespace tools::tarv_store {

namespace {

constexpr uint32_t kUsualEraseSize = 128 * 1024;
constexpr uint32_t kLargestEraseSize = 16 * 1024 * 1024;

// Whether there is a file to open. Anything else of that name is refused: to open a pipe is to wait.
bool is_there(const std::string& path) {
  std::error_code error;
  const std::filesystem::file_status found = std::filesystem::status(path, error);
  if (found.type() == std::filesystem::file_type::not_found) return false;
  if (found.type() == std::filesystem::file_type::regular) return true;
  if (error) throw refusal("cannot look at " + in_quotes(path) + ": " + error.message());
  throw refusal(in_quotes(path) + " is no regular file; put a dump or a list there, or remove it");
}

std::ifstream open_list(const std::string& path) {
  std::ifstream list(path);
  if (!list) throw system_refusal("cannot read " + in_quotes(path));
  return list;
}

// Reads the numbers of the list, if it is there, into the dump's table.
void read_bad_list(partition_dump& dump) {
  const std::string& path = dump.bad_list;
  if (!is_there(path)) return;
  std::ifstream list = open_list(path);
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

void check_size(const std::string& path, uintmax_t size, uint32_t erase_size) {
  const std::string told = in_quotes(path) + " has " + std::to_string(size) + " bytes, ";
  if (size > UINT32_MAX) {
    throw refusal(told + "too large for a partition, which has " + std::to_string(UINT32_MAX) + " at most");
  }
  if (size == 0 || size % erase_size != 0) {
    throw refusal(told + "which is no whole number of blocks of " + std::to_string(erase_size) +
                  " bytes; is it complete, without OOB, and --erase-size right?");
  }
}

// What a line of "sizes" tells of a partition.
struct told_sizes {
  uint32_t size, erase_size;
};

std::map<std::string, told_sizes> read_sizes(const std::string& folder) {
  std::map<std::string, told_sizes> sizes;
  const std::string path = dump_sizes_path(folder);
  if (!is_there(path)) return sizes;
  std::ifstream list = open_list(path);
  for (std::string line, name; std::getline(list, line);) {
    told_sizes told = {};
    std::istringstream words(line);
    const bool read = words >> name >> told.size >> told.erase_size && (words >> std::ws).eof();
    if (!read || !is_erase_size(told.erase_size)) {
      throw refusal(in_quotes(path) + ": " + in_quotes(line) + " is not of the form NAME BYTES ERASE-BLOCK");
    }
    sizes[name] = told;
  }
  return sizes;
}

partition_dump find_dump(const std::string& folder, const std::string& name, uint32_t erase_size) {
  partition_dump dump = {name, dump_path(folder, name), bad_list_path(folder, name), 0, {}};
  const uintmax_t size = std::filesystem::file_size(dump.path);
  check_size(dump.path, size, erase_size);
  dump.size = static_cast<uint32_t>(size);
  dump.bad.resize(size / erase_size);
  read_bad_list(dump);
  return dump;
}

std::string file_of(const std::string& folder, const std::string& name, const char* ending) {
  return folder + "/" + name + ending;
}

}  // namespace

std::string dump_path(const std::string& folder, const std::string& name) {
  return file_of(folder, name, ".bin");
}

std::string bad_list_path(const std::string& folder, const std::string& name) {
  return file_of(folder, name, ".bad");
}

std::string dump_sizes_path(const std::string& folder) {
  return file_of(folder, "sizes", "");
}

std::string sizes_line(const std::string& name, uint32_t size, uint32_t erase_size) {
  return name + ' ' + std::to_string(size) + ' ' + std::to_string(erase_size) + '\n';
}

bool is_erase_size(uint32_t number) {
  return number >= 512 && number <= kLargestEraseSize && (number & (number - 1)) == 0;
}

std::vector<partition_dump> find_dumps(const std::string& folder, std::optional<uint32_t>& erase_size) {
  const std::map<std::string, told_sizes> sizes = read_sizes(folder);
  // One flash has one erase block.
  if (!erase_size) erase_size = sizes.empty() ? kUsualEraseSize : sizes.begin()->second.erase_size;
  std::vector<partition_dump> dumps;
  for (const std::string name : store_list) {
    if (!is_there(dump_path(folder, name))) continue;
    dumps.push_back(find_dump(folder, name, *erase_size));
    const auto told = sizes.find(name);
    if (told == sizes.end() || told->second.size == dumps.back().size) continue;
    throw refusal(in_quotes(dumps.back().path) + " has " + std::to_string(dumps.back().size) + " bytes, by " +
                  in_quotes(dump_sizes_path(folder)) + " it had " + std::to_string(told->second.size) +
                  "; copy it again");
  }
  if (dumps.empty()) throw refusal("no dump in " + in_quotes(folder) + ": it should hold userdata.bin");
  return dumps;
}

}  // namespace tools::tarv_store
