#include "tools/tarv-store/dump.h"

#include <algorithm>
#include <cinttypes>
#include <filesystem>

#include "tools/common/output_file.h"
#include "tools/common/progress.h"
#include "tools/common/refusal.h"
#include "tools/tarv-store/block_reader.h"
#include "tools/tarv-store/dumps.h"
#include "tools/tarv-store/open_store.h"
#include "tools/tarv-store/store_view.h"

namespace tools::tarv_store {

namespace {

// An older dump stays: a part of it beside a part of the new one would look like a damaged store.
void prepare_folder(const std::string& folder, const store_view& store) {
  std::error_code error;
  std::filesystem::create_directory(folder, error);
  if (error) throw refusal("cannot make the folder " + in_quotes(folder) + ": " + error.message());
  std::vector<std::string> paths = {dump_sizes_path(folder)};
  for (const store_partition& partition : store.partitions) {
    paths.push_back(dump_path(folder, partition.entry->name));
    paths.push_back(bad_list_path(folder, partition.entry->name));
  }
  for (const std::string& path : paths) {
    if (!std::filesystem::exists(std::filesystem::symlink_status(path))) continue;
    throw refusal(in_quotes(path) + " is there already; choose a new folder");
  }
}

void write_text(const std::string& path, const std::string& text) {
  output_file out(path);
  out.write(text.data(), text.size());
  out.commit();
}

// Erased bytes for the blocks from `first` on, up to `end`, and their numbers for the list. Without `head`: a
// record that cannot be read is one that is not there, and must not be looked for in the next block.
std::string pass_over(output_file& out, uint32_t first, uint32_t end, uint32_t head, uint32_t erase_size) {
  const std::vector<uint8_t> erased(first < end ? erase_size : 0, 0xFF);
  std::string numbers;
  for (uint32_t block = first; block < end; ++block) {
    out.write(erased.data(), erased.size());
    if (block != head) numbers += std::to_string(block) + '\n';
  }
  return numbers;
}

// The list gets its name before the dump: a dump without it would be taken for one without bad blocks.
void dump_partition(FILE* out, const store_view& store, size_t i, const std::string& folder, progress& done) {
  const store_partition& partition = store.partitions[i];
  const mtd_partition& entry = *partition.entry;
  output_file dump(dump_path(folder, entry.name));
  block_reader reader(entry, partition.bad, 0);
  const auto blocks = static_cast<uint32_t>(partition.bad.size());
  const uint32_t head = i == 0 ? store.head_block : blocks;
  std::string bad;
  uint32_t next = 0;
  while (reader.next()) {
    bad += pass_over(dump, next, reader.number(), head, entry.erase_size);
    dump.write(reader.data().data(), reader.data().size());
    done.add(uint64_t{reader.number() + 1 - next} * entry.erase_size);
    next = reader.number() + 1;
  }
  bad += pass_over(dump, next, blocks, head, entry.erase_size);
  write_text(bad_list_path(folder, entry.name), bad);
  dump.commit();
  fprintf(out, "%s: %u blocks of %" PRIu32 " bytes, %td of them in %s.bad\n", entry.name, blocks,
          entry.erase_size, std::count(bad.begin(), bad.end(), '\n'), entry.name);
}

}  // namespace

void dump_store(FILE* out, const std::string& folder) {
  const store_view store = open_store();
  prepare_folder(folder, store);
  std::string sizes, whole;
  uint64_t bytes = 0;
  for (const store_partition& partition : store.partitions) {
    sizes += sizes_line(partition.entry->name, partition.entry->size, partition.entry->erase_size);
    bytes += partition.entry->size;
  }
  write_text(dump_sizes_path(folder), sizes);
  progress done("dumped", bytes);
  try {
    for (size_t i = 0; i < store.partitions.size(); ++i) {
      dump_partition(out, store, i, folder, done);
      whole.append(" ").append(store.partitions[i].entry->name);
    }
  } catch (const refusal& fault) {
    throw refusal(std::string(fault.what()) + "; in " + in_quotes(folder) +
                  " there are, whole, only:" + (whole.empty() ? " none" : whole));
  }
}

}  // namespace tools::tarv_store
