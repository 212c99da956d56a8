#include "tools/tarv-store/images.h"

#include <cinttypes>
#include <functional>

#include "package/crc32.h"
#include "tools/common/output_file.h"
#include "tools/common/printable.h"
#include "tools/common/progress.h"
#include "tools/common/refusal.h"
#include "tools/tarv-store/dump_hints.h"
#include "tools/tarv-store/open_store.h"
#include "tools/tarv-store/source.h"
#include "tools/tarv-store/store_view.h"

namespace tools::tarv_store {

namespace {

struct verdict {
  std::vector<uint32_t> crcs;  // computed; empty when the stream could not be read
  std::string fault;           // the first one, or empty
};

void check_crc(const store_view& store, uint32_t i, uint32_t computed) {
  const store_head_image& image = store.record.images[i];
  if (computed == image.crc) return;
  throw refusal("image " + std::to_string(i) + ", " + in_quotes(image_name(image)) +
                ": the data are damaged: crc is " + in_hex(image.crc) + ", the data give " +
                in_hex(computed) + hint_on_data(store));
}

// Bytes of the stream in all partitions.
uint64_t stream_length(const store_view& store) {
  uint64_t length = 0;
  for (const store_partition& partition : store.partitions) length += partition.bytes;
  return length;
}

std::vector<uint32_t> stream_crcs(const store_view& store) {
  progress done("verified", stream_length(store));
  std::vector<uint32_t> crcs(store.record.image_num, kCrcStart);
  walk_stream(store, [&](const stream_block& block) {
    cut_images(store.record, block, [&](uint32_t image, const uint8_t* data, size_t length) {
      crcs[image] = crc32_update(crcs[image], data, length);
    });
    done.add(block.length);
    return true;
  });
  return crcs;
}

verdict judge(const store_view& store) {
  verdict found;
  try {
    require_armed(store);
    found.crcs = stream_crcs(store);
    for (uint32_t i = 0; i < found.crcs.size(); ++i) check_crc(store, i, found.crcs[i]);
  } catch (const refusal& fault) {
    found.fault = fault.what();
  }
  return found;
}

void print_text(FILE* out, const store_head_record& record, const verdict& found) {
  for (uint32_t i = 0; i < found.crcs.size(); ++i) {
    const store_head_image& image = record.images[i];
    fprintf(out, "image %u, %s: %" PRIu32 " bytes, crc %s: %s\n", i, image_name(image).c_str(), image.size,
            in_hex(image.crc).c_str(), found.crcs[i] == image.crc ? "OK" : "DAMAGED");
  }
  if (found.fault.empty())
    fprintf(out, "OK: the store is armed, all %zu images are right\n", found.crcs.size());
}

void print_json(FILE* out, const store_view& store, const verdict& found) {
  fprintf(out, "{\n  \"armed\": %s,\n  \"images\": [", store.form == record_form::armed ? "true" : "false");
  for (uint32_t i = 0; i < found.crcs.size(); ++i) {
    const store_head_image& image = store.record.images[i];
    fprintf(out,
            "%s\n    {\"name\": %s, \"size\": %" PRIu32 ", \"crc\": %" PRIu32 ", \"computed\": %" PRIu32 "}",
            i == 0 ? "" : ",", json_string(image_name(image)).c_str(), image.size, image.crc, found.crcs[i]);
  }
  fprintf(out, "],\n  \"fault\": %s\n}\n", found.fault.empty() ? "null" : json_string(found.fault).c_str());
}

uint32_t find_image(const store_head_record& record, const std::string& wanted) {
  std::string names;
  uint32_t found = kStoreImagesMax;
  for (uint32_t i = 0; i < record.image_num; ++i) {
    const std::string name = image_name(record.images[i]);
    if (name == wanted || std::to_string(i) == wanted) found = i;
    names.append(" ").append(name);
  }
  if (found < kStoreImagesMax) return found;
  throw refusal("the store has no image " + in_quotes(wanted) + "; it has:" + names);
}

// Returns the CRC of what was copied.
uint32_t copy_image(const store_view& store, uint32_t wanted,
                    const std::function<void(const void* data, size_t length)>& take) {
  uint32_t crc = kCrcStart;
  uint64_t left = store.record.images[wanted].size;
  progress done("extracted", left);
  walk_stream(store, [&](const stream_block& block) {
    cut_images(store.record, block, [&](uint32_t image, const uint8_t* data, size_t length) {
      if (image != wanted) return;
      crc = crc32_update(crc, data, length);
      take(data, length);
      left -= length;
      done.add(length);
    });
    return left > 0;
  });
  return crc;
}

// What a stream has been given cannot be taken back, so the CRC comes first.
void stream_image(const store_view& store, uint32_t wanted, FILE* out) {
  check_crc(store, wanted, copy_image(store, wanted, [](const void*, size_t) {}));
  const auto append = [&](const void* data, size_t length) { write_stream(out, data, length); };
  check_crc(store, wanted, copy_image(store, wanted, append));
}

}  // namespace

void verify_store(FILE* out, bool as_json) {
  crc32_init_table();
  const store_view store = open_store();
  const verdict found = judge(store);
  if (as_json) {
    print_json(out, store, found);
  } else {
    print_text(out, store.record, found);
  }
  if (!found.fault.empty()) throw refusal(found.fault);
}

void extract_image(FILE* out, const std::string& image, const std::string& path) {
  crc32_init_table();
  const bool streams = path == kStandardOutput;
  streams ? check_output_stream(out) : check_output_path(path);
  if (is_dump(path)) throw refusal(in_quotes(path) + " belongs to the dumps; choose another output");
  const store_view store = open_store();
  require_armed(store);
  const uint32_t wanted = find_image(store.record, image);
  if (streams) {
    stream_image(store, wanted, out);
    return;
  }
  output_file file(path);
  const auto append = [&](const void* data, size_t length) { file.write(data, length); };
  check_crc(store, wanted, copy_image(store, wanted, append));
  file.commit();
}

}  // namespace tools::tarv_store
