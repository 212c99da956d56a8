#include "tools/tarv-pkg/comparison.h"

#include <algorithm>

#include "tools/common/printable.h"
#include "tools/common/progress.h"
#include "tools/tarv-pkg/check.h"
#include "tools/tarv-pkg/package_file.h"

namespace tools::tarv_pkg {

namespace {

constexpr uint64_t kPiece = 16 * kComparedBlock;

struct package {
  explicit package(const std::string& path) : file(path), head(read_head(file)) {
    in_place(in_quotes(path) + ": ", [&] { check_shape(head, file.size()); });
  }

  input_file file;
  package_head head;
};

shown_value number(uint32_t n) {
  return {std::to_string(n), std::to_string(n)};
}

shown_value bits(uint32_t n) {
  return {in_hex(n), std::to_string(n)};
}

shown_value words(std::string_view text) {
  return {'"' + printable(text) + '"', json_string(text)};
}

bool any_differs(const std::vector<compared_field>& fields) {
  return std::any_of(fields.begin(), fields.end(), [](const compared_field& one) { return one.differs(); });
}

std::vector<compared_field> entry_fields(const package_entry* a, const package_entry* b) {
  const auto both = [&](const char* name, auto read) {
    return compared_field{name, a == nullptr ? shown_value{} : read(*a),
                          b == nullptr ? shown_value{} : read(*b)};
  };
  return {both("file_name", [](const package_entry& one) { return words(field_text(one.file_name)); }),
          both("size", [](const package_entry& one) { return number(one.size); }),
          both("crc", [](const package_entry& one) { return bits(one.crc); })};
}

std::optional<uint64_t> first_difference(std::string_view a, std::string_view b) {
  if (a == b) return std::nullopt;
  const auto at = std::mismatch(a.begin(), a.end(), b.begin(), b.end()).first;
  return static_cast<uint64_t>(at - a.begin());
}

std::string_view bytes_of(const package_head& head) {
  return {reinterpret_cast<const char*>(&head), sizeof head};
}

// By name; of two with the same name the first with the first.
std::vector<image_pair> pair_images(const package_head& a, const package_head& b) {
  std::vector<image_pair> pairs;
  bool taken[kMaxImages] = {};
  const auto add = [&](std::optional<uint32_t> i, std::optional<uint32_t> k) {
    const package_entry *of_a = i ? &a.images[*i] : nullptr, *of_b = k ? &b.images[*k] : nullptr;
    const std::string_view name = field_text(i ? of_a->name : of_b->name);
    pairs.push_back({i, k, std::string(name), entry_fields(of_a, of_b)});
  };
  for (uint32_t i = 0; i < a.image_num; ++i) {
    std::optional<uint32_t> found;
    for (uint32_t k = 0; k < b.image_num && !found; ++k) {
      if (!taken[k] && field_text(a.images[i].name) == field_text(b.images[k].name)) found = k;
    }
    if (found) taken[*found] = true;
    add(i, found);
  }
  for (uint32_t k = 0; k < b.image_num; ++k) {
    if (!taken[k]) add(std::nullopt, k);
  }
  return pairs;
}

// The order in which one of the packages has the images of both.
shown_value order_of(std::vector<image_pair> pairs, std::optional<uint32_t> image_pair::*position) {
  const auto before = [&](const image_pair& one, const image_pair& other) {
    return one.*position < other.*position;
  };
  std::stable_sort(pairs.begin(), pairs.end(), before);
  shown_value order = {"", ""};
  for (const image_pair& pair : pairs) {
    if (!pair.a || !pair.b) continue;
    order.text += (order.text.empty() ? "" : " ") + printable(pair.name);
    order.json += (order.json.empty() ? "" : ", ") + json_string(pair.name);
  }
  return {order.text, '[' + order.json + ']'};
}

std::vector<compared_field> head_fields(const package_head& a, const package_head& b,
                                        const std::vector<image_pair>& images) {
  return {{"major_version", number(a.major_version), number(b.major_version)},
          {"minor_version", number(a.minor_version), number(b.minor_version)},
          {"img_version", words(field_text(a.img_version)), words(field_text(b.img_version))},
          {"meta_hdr_sz", number(a.meta_hdr_sz), number(b.meta_hdr_sz)},
          {"order", order_of(images, &image_pair::a), order_of(images, &image_pair::b)}};
}

// The data of an image, read on piece by piece.
class image_data {
 public:
  image_data(package& from, uint32_t image) : file_(from.file), left_(from.head.images[image].size) {
    uint64_t offset = kPackageHeadSize;
    for (uint32_t i = 0; i < image; ++i) offset += from.head.images[i].size;
    file_.seek(offset);
  }

  // Less than a whole piece at the image's end, and nothing behind it.
  std::string_view next() {
    const size_t length = std::min(left_, kPiece);
    file_.read(piece_.data(), length);
    left_ -= length;
    return {piece_.data(), length};
  }

 private:
  input_file& file_;
  uint64_t left_;
  std::vector<char> piece_ = std::vector<char>(kPiece);
};

std::string_view block_of(std::string_view piece, uint64_t at) {
  return piece.substr(std::min<size_t>(at, piece.size()), kComparedBlock);
}

void compare_data(image_pair& pair, package& a, package& b, progress& done) {
  image_data data_a(a, *pair.a), data_b(b, *pair.b);
  for (uint64_t start = 0;; start += kPiece) {
    const std::string_view piece_a = data_a.next(), piece_b = data_b.next();
    const uint64_t length = std::max(piece_a.size(), piece_b.size());
    if (length == 0) return;
    for (uint64_t at = 0; at < length; at += kComparedBlock) {
      const std::optional<uint64_t> found = first_difference(block_of(piece_a, at), block_of(piece_b, at));
      ++pair.blocks;
      if (!found) continue;
      ++pair.different;
      if (!pair.first) pair.first = start + at + *found;
    }
    done.add(piece_a.size() + piece_b.size());
  }
}

void compare_images(std::vector<image_pair>& pairs, package& a, package& b) {
  progress done("compared", a.file.size() + b.file.size());
  for (image_pair& pair : pairs) {
    if (pair.a && pair.b) compare_data(pair, a, b, done);
  }
}

}  // namespace

bool image_pair::differs() const {
  return any_differs(fields) || first;
}

bool comparison::differs() const {
  const auto image_differs = [](const image_pair& pair) { return pair.differs(); };
  return any_differs(head) || unused || std::any_of(images.begin(), images.end(), image_differs);
}

comparison compare_packages(const std::string& path_a, const std::string& path_b) {
  package a(path_a), b(path_b);
  std::vector<image_pair> images = pair_images(a.head, b.head);
  compare_images(images, a, b);
  comparison found = {head_fields(a.head, b.head, images), {}, std::move(images)};
  if (!found.differs()) found.unused = first_difference(bytes_of(a.head), bytes_of(b.head));
  return found;
}

}  // namespace tools::tarv_pkg
