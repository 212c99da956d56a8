// What differs between two packages, found with the files read once.
#ifndef TARVOLIN_TOOLS_TARV_PKG_COMPARISON_H
#define TARVOLIN_TOOLS_TARV_PKG_COMPARISON_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tools::tarv_pkg {

constexpr uint64_t kComparedBlock = 4096;  // bytes; the unit of the store, in which differences are counted

// A value of one of the packages, ready for printing.
struct shown_value {
  std::string text;  // empty: the package has none
  std::string json = "null";
};

struct compared_field {
  const char* name;
  shown_value a, b;

  bool differs() const { return a.text != b.text; }
};

// An image of one package or of both.
struct image_pair {
  std::optional<uint32_t> a, b;  // positions in the tables
  std::string name;
  std::vector<compared_field> fields;
  uint64_t blocks = 0, different = 0;  // of the data, for an image of both
  std::optional<uint64_t> first = {};  // byte of the data that differs

  bool differs() const;
};

struct comparison {
  std::vector<compared_field> head;  // and "order", that of the images which both have
  std::optional<uint64_t> unused;    // when nothing else differs: the first byte of the head that does
  std::vector<image_pair> images;    // in the order of the first package, then those that only the second has

  // False: the files are the same byte for byte.
  bool differs() const;
};

// Throws a refusal when one of the files is not shaped as a package or cannot be read.
[[nodiscard]] comparison compare_packages(const std::string& a, const std::string& b);

}  // namespace tools::tarv_pkg

#endif
