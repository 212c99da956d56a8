#include "tools/tarv-pkg/create.h"

#include <charconv>
#include <cstdio>
#include <deque>
#include <filesystem>

#include "package/crc32.h"
#include "package/format.h"
#include "package/head_rules.h"
#include "tools/common/output_file.h"
#include "tools/common/printable.h"
#include "tools/common/progress.h"
#include "tools/common/refusal.h"
#include "tools/tarv-pkg/head_faults.h"
#include "tools/tarv-pkg/input_file.h"

namespace tools::tarv_pkg {

namespace {

constexpr char kUnusedEntryName[] = "system";

// Puts a text into its field of the head; `what` and `advice` are for the case that it does not fit.
template <size_t N>
void put_text(char (&field)[N], const given_text& word, const std::string& what, const std::string& advice) {
  const std::string& text = word.text;
  if (holds_control_character(text)) {
    throw refusal(word.place + what + " holds a control character; " + advice);
  }
  if (text.size() >= N) {
    throw refusal(word.place + what + " is " + std::to_string(text.size()) +
                  " bytes long, the head has room for " + std::to_string(N - 1) + "; " + advice);
  }
  memcpy(field, text.data(), text.size());
}

void put_entry(package_entry& entry, const image_order& image) {
  const std::string& partition = image.partition.text;
  in_place(image.partition.place, [&] { check_partition_name(partition); });
  put_text(entry.name, image.partition, "partition " + in_quotes(partition), "shorten it");
  const given_text of_file = {std::filesystem::path(image.path.text).filename(), image.path.place};
  const given_text& saved = image.saved_name.is_given() ? image.saved_name : of_file;
  put_text(entry.file_name, saved,
           "the saved name " + in_quotes(saved.text) + " of partition " + in_quotes(partition),
           "choose another one with save-as");
}

uint16_t number_of(const given_text& word) {
  if (!word.is_given()) return 0;
  const std::optional<uint16_t> number = version_number(word.text);
  if (!number) throw refusal(word.place + in_quotes(word.text) + " is not a number from 0 to 65535");
  return *number;
}

// The head but for sizes and CRCs.
package_head plan_head(const package_order& order) {
  check_image_count(order.images.size());
  if (order.version.text.empty()) {
    throw refusal(order.version.place + "the version text is empty; begin it with the project id");
  }
  package_head head = {};
  head.magic = TARV_PACKAGE_MAGIC;
  head.major_version = number_of(order.major_version);
  head.minor_version = number_of(order.minor_version);
  put_text(head.img_version, order.version, "the version text", "shorten or correct it");
  head.meta_hdr_sz = kPackageHeadSize;
  head.image_num = static_cast<uint16_t>(order.images.size());
  for (uint32_t i = 0; i < head.image_num; ++i) put_entry(head.images[i], order.images[i]);
  // The updater looks at the group of entry 0 in every package and refuses one without images whose unused
  // entry names no partition that it knows.
  if (head.image_num == 0) memcpy(head.images[0].name, kUnusedEntryName, sizeof kUnusedEntryName);
  return head;
}

// Opens the image files and fills in their sizes. All stay open, so that what was judged is what is packed.
std::deque<input_file> open_images(const package_order& order, package_head& head) {
  std::deque<input_file> files;
  uint64_t length = kPackageHeadSize;
  for (const image_order& image : order.images) {
    in_place(image.path.place, [&] { length += files.emplace_back(image.path.text).size(); });
  }
  check_total_length(length);
  for (uint32_t i = 0; i < head.image_num; ++i) head.images[i].size = static_cast<uint32_t>(files[i].size());
  return files;
}

// With the place of the image that has the fault.
void check_table(const package_order& order, const package_head& head) {
  try {
    check_entries(head);
    check_no_partition_twice(head);
  } catch (const image_refusal& fault) {
    throw refusal(order.images[fault.image].partition.place + fault.what());
  }
}

// Keeps a slip of the pen from replacing the manifest or an image by a package.
void check_output(const package_order& order, const std::deque<input_file>& files) {
  const std::string& path = order.output;
  check_output_path(path);
  if (!order.manifest.empty() && input_file(order.manifest).has_name(path))
    throw refusal(in_quotes(path) + " is the manifest; choose another output");
  for (const input_file& file : files) {
    if (file.has_name(path))
      throw refusal(in_quotes(path) + " is one of the image files; choose another output");
  }
}

// What the updater takes, but hardly anybody means.
void warn_of_doubts(const package_head& head) {
  if (head.image_num == 0) fprintf(stderr, "tarv-pkg: warning: the package has no images\n");
  if (vexo_tarv_get_project_type(head.img_version) < 0) {
    fprintf(stderr,
            "tarv-pkg: warning: version \"%s\" begins with no known project id; only modules whose own id is "
            "unknown too will take the package\n",
            printable(head.img_version).c_str());
  }
  for (uint32_t i = 0; i < head.image_num; ++i) {
    if (head.images[i].size != 0) continue;
    fprintf(stderr, "tarv-pkg: warning: the image for partition \"%s\" is empty\n", head.images[i].name);
  }
}

// Passes the data of all images to `take` and puts their CRCs into the head.
template <typename Take>
void pass_images(package_head& head, std::deque<input_file>& files, progress& done, const Take& take) {
  for (uint32_t i = 0; i < head.image_num; ++i) {
    head.images[i].crc = pass_data(files[i], head.images[i].size, [&](const void* data, size_t length) {
      take(data, length);
      done.add(length);
    });
    files[i].expect_end();
  }
  head.header_crc32 = package_head_crc(head);
}

void write_file(package_head& head, std::deque<input_file>& files, const std::string& path) {
  output_file out(path);
  progress done("packed", package_length(head) - kPackageHeadSize);
  out.write(&head, sizeof head);  // holds the place until the CRCs are known
  pass_images(head, files, done, [&](const void* data, size_t length) { out.write(data, length); });
  out.rewrite_start(&head, sizeof head);
  out.commit();
}

// Nothing in a stream can be written over: the images are read twice, first for the CRCs of the head.
void write_to_stream(package_head& head, std::deque<input_file>& files, FILE* out) {
  progress done("packed", uint64_t{2} * (package_length(head) - kPackageHeadSize));
  pass_images(head, files, done, [](const void*, size_t) {});
  package_head promised = head;
  write_stream(out, &promised, sizeof promised);
  for (input_file& file : files) file.seek(0);
  pass_images(head, files, done, [&](const void* data, size_t length) { write_stream(out, data, length); });
  if (head.header_crc32 == promised.header_crc32) return;
  throw refusal("an image changed while it was read; what standard output has is no package");
}

}  // namespace

std::optional<uint16_t> version_number(const std::string& word) {
  uint16_t number = 0;
  const char* const end = word.data() + word.size();
  const auto [stopped, error] = std::from_chars(word.data(), end, number);
  if (error != std::errc() || stopped != end) return std::nullopt;
  return number;
}

void create_package(const package_order& order) {
  package_head head = plan_head(order);
  std::deque<input_file> files = open_images(order, head);
  check_table(order, head);
  const bool streams = order.output == kStandardOutput;
  streams ? check_output_stream(stdout) : check_output(order, files);
  warn_of_doubts(head);
  crc32_init_table();
  streams ? write_to_stream(head, files, stdout) : write_file(head, files, order.output);
}

}  // namespace tools::tarv_pkg
