#include "tools/tarv-store/show.h"

#include <cinttypes>

#include "store/partition_groups.h"
#include "tools/common/printable.h"
#include "tools/common/refusal.h"
#include "tools/tarv-store/block_use.h"
#include "tools/tarv-store/open_store.h"

namespace tools::tarv_store {

namespace {

struct record_field {
  const char* name;
  int64_t value;
};

// With the names of docs/store-format.md; the magic stands before them, the images apart.
std::vector<record_field> fields_of(const store_head_record& record) {
  return {{"status", record.status},
          {"valid_pt", record.valid_pt},
          {"ptsavesize[0]", record.ptsavesize[0]},
          {"ptsavesize[1]", record.ptsavesize[1]},
          {"ptsavesize[2]", record.ptsavesize[2]},
          {"image_num", record.image_num},
          {"rmrfnvbak", record.rmrfnvbak},
          {"vexocor_flag", record.vexocor_flag},
          {"customer_flag", record.customer_flag},
          {"userdata_flag", record.userdata_flag},
          {"need_recovery", record.need_recovery}};
}

const char* form_name(record_form form) {
  return form == record_form::armed ? "armed" : form == record_form::storing ? "storing" : "none";
}

void show_record(FILE* out, const store_head_record& record) {
  fprintf(out, "%-16s%s\n", "magic", in_hex(record.magic).c_str());
  for (const auto& [name, value] : fields_of(record)) fprintf(out, "%-16s%" PRId64 "\n", name, value);
  for (uint32_t i = 0; i < entries_in_list(record); ++i) {
    const store_head_image& image = record.images[i];
    fprintf(out, "image %u\n  name          %s\n", i, printable(image_name(image)).c_str());
    fprintf(out, "  size          %" PRIu32 "\n  size_algin    %" PRIu32 "\n", image.size, image.size_algin);
    fprintf(out, "  crc           %s\n", in_hex(image.crc).c_str());
  }
}

void show_text(FILE* out, const store_view& store, const std::vector<std::vector<block_use>>& uses) {
  const std::string remark = store.remark.empty() ? "" : ": " + store.remark;
  fprintf(out, "%-16s%s, block %u of \"%s\"%s\n", "record", form_name(store.form), store.head_block,
          store_list[0], remark.c_str());
  if (store.form != record_form::none) show_record(out, store.record);
  for (size_t i = 0; i < uses.size(); ++i) {
    const mtd_partition& entry = *store.partitions[i].entry;
    fprintf(out, "partition %s\n  blocks        %zu of %u bytes\n", entry.name, uses[i].size(),
            entry.erase_size);
    fprintf(out, "  stream bytes  %" PRIu64 "\n", store.partitions[i].bytes);
    for (const auto& [first, last, use] : ranges_of(uses[i])) {
      const std::string numbers = std::to_string(first) + (first == last ? "" : "-" + std::to_string(last));
      fprintf(out, "  %-14s%s\n", numbers.c_str(), use_text(store, use).c_str());
    }
  }
}

void show_json_record(FILE* out, const store_head_record& record) {
  fprintf(out, "{\n    \"magic\": %" PRIu32, record.magic);
  for (const auto& [name, value] : fields_of(record)) fprintf(out, ",\n    \"%s\": %" PRId64, name, value);
  fprintf(out, ",\n    \"images\": [");
  for (uint32_t i = 0; i < entries_in_list(record); ++i) {
    const store_head_image& image = record.images[i];
    fprintf(
        out,
        "%s\n      {\"name\": %s, \"size\": %" PRIu32 ", \"size_algin\": %" PRIu32 ", \"crc\": %" PRIu32 "}",
        i == 0 ? "" : ",", json_string(image_name(image)).c_str(), image.size, image.size_algin, image.crc);
  }
  fprintf(out, "]\n  }");
}

void show_json_blocks(FILE* out, const std::vector<block_use>& blocks) {
  const char* separator = "";
  for (const auto& [first, last, use] : ranges_of(blocks)) {
    fprintf(out, "%s\n      {\"first\": %u, \"last\": %u, \"holds\": \"%s\"", separator, first, last,
            kind_name(use.kind));
    if (use.kind == block_kind::image) {
      fprintf(out, ", \"first_image\": %u, \"last_image\": %u", use.first_image, use.last_image);
    }
    fputc('}', out);
    separator = ",";
  }
}

// By hand: the only thing that can go wrong is in the texts, and those are escaped in one place.
void show_json(FILE* out, const store_view& store, const std::vector<std::vector<block_use>>& uses) {
  fprintf(out, "{\n  \"form\": \"%s\",\n  \"head_block\": %u,\n", form_name(store.form), store.head_block);
  fprintf(out, "  \"remark\": %s,\n  \"record\": ", json_string(store.remark).c_str());
  if (store.form == record_form::none) {
    fprintf(out, "null");
  } else {
    show_json_record(out, store.record);
  }
  fprintf(out, ",\n  \"partitions\": [");
  for (size_t i = 0; i < uses.size(); ++i) {
    const mtd_partition& entry = *store.partitions[i].entry;
    fprintf(out, "%s\n    {\"name\": \"%s\", \"erase_size\": %u, \"blocks\": %zu, \"stream_bytes\": %" PRIu64,
            i == 0 ? "" : ",", entry.name, entry.erase_size, uses[i].size(), store.partitions[i].bytes);
    fprintf(out, ", \"ranges\": [");
    show_json_blocks(out, uses[i]);
    fprintf(out, "]}");
  }
  const std::string fault = store.fault.empty() ? "null" : json_string(store.fault);
  fprintf(out, "],\n  \"fault\": %s\n}\n", fault.c_str());
}

}  // namespace

void show_store(FILE* out, bool as_json) {
  store_view store = open_store();
  const auto uses = survey(store);
  (as_json ? show_json : show_text)(out, store, uses);
  if (!store.fault.empty()) throw refusal(store.fault);
}

}  // namespace tools::tarv_store
