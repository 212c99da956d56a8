#include "tools/tarv-pkg/diff.h"

#include <cinttypes>
#include <cstdio>

#include "tools/common/printable.h"
#include "tools/tarv-pkg/comparison.h"

namespace tools::tarv_pkg {

namespace {

const char* kind_of(const image_pair& pair) {
  if (!pair.a) return "added";
  if (!pair.b) return "removed";
  return pair.differs() ? "changed" : "same";
}

void print_fields(const std::string& owner, const std::vector<compared_field>& fields) {
  for (const compared_field& one : fields) {
    if (!one.differs()) continue;
    printf("%s%s %s -> %s\n", owner.c_str(), one.name, one.a.text.c_str(), one.b.text.c_str());
  }
}

void print_image(const image_pair& pair) {
  const std::string owner = "image " + printable(pair.name) + ": ";
  if (!pair.a || !pair.b) {
    printf("%s%s: index %u", owner.c_str(), kind_of(pair), pair.a ? *pair.a : *pair.b);
    for (const compared_field& one : pair.fields)
      printf(", %s %s", one.name, (pair.a ? one.a : one.b).text.c_str());
    printf("\n");
    return;
  }
  print_fields(owner, pair.fields);
  if (!pair.first) return;
  printf("%sdata differ from byte %" PRIu64 " on, in %" PRIu64 " of %" PRIu64 " blocks of %" PRIu64
         " bytes\n",
         owner.c_str(), *pair.first, pair.different, pair.blocks, kComparedBlock);
}

void print_text(const comparison& found) {
  print_fields("", found.head);
  if (found.unused)
    printf("header_crc32 or unused bytes of the head differ from byte %" PRIu64 " on\n", *found.unused);
  for (const image_pair& pair : found.images) print_image(pair);
}

template <typename Number>
std::string json_number(const std::optional<Number>& n) {
  return n ? std::to_string(*n) : "null";
}

std::string json_field(const compared_field& one) {
  return std::string("\"") + one.name + "\": [" + one.a.json + ", " + one.b.json + "]";
}

void print_json_image(const image_pair& pair) {
  printf("{\"name\": %s, \"change\": \"%s\", ", json_string(pair.name).c_str(), kind_of(pair));
  printf("\"index\": [%s, %s], ", json_number(pair.a).c_str(), json_number(pair.b).c_str());
  for (const compared_field& one : pair.fields) printf("%s, ", json_field(one).c_str());
  printf("\"first_difference\": %s, \"blocks\": %" PRIu64 ", \"blocks_different\": %" PRIu64 "}",
         json_number(pair.first).c_str(), pair.blocks, pair.different);
}

void print_json(const comparison& found) {
  printf("{\n  \"same\": %s,\n", found.differs() ? "false" : "true");
  for (const compared_field& one : found.head) printf("  %s,\n", json_field(one).c_str());
  printf("  \"unused\": %s,\n  \"images\": [", json_number(found.unused).c_str());
  for (const image_pair& pair : found.images) {
    printf(&pair == &found.images.front() ? "\n    " : ",\n    ");
    print_json_image(pair);
  }
  printf("%s]\n}\n", found.images.empty() ? "" : "\n  ");
}

}  // namespace

bool diff_packages(const std::string& a, const std::string& b, bool as_json) {
  const comparison found = compare_packages(a, b);
  as_json ? print_json(found) : print_text(found);
  return found.differs();
}

}  // namespace tools::tarv_pkg
