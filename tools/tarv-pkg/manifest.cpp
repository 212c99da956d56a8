#include "tools/tarv-pkg/manifest.h"

#include <algorithm>
#include <filesystem>

#include "tools/common/printable.h"
#include "tools/common/refusal.h"
#include "tools/tarv-pkg/head_faults.h"
#include "tools/tarv-pkg/input_file.h"

namespace tools::tarv_pkg {

namespace {

constexpr uint64_t kMaxLength = 1048576;  // bytes; a longer file is something else
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

std::string read_text(const std::string& path) {
  input_file file(path);
  if (file.size() > kMaxLength) {
    throw refusal(in_quotes(path) + " has " + std::to_string(file.size()) + " bytes, a manifest at most " +
                  std::to_string(kMaxLength));
  }
  std::string text(static_cast<size_t>(file.size()), '\0');
  file.read(text.data(), text.size());
  file.expect_end();
  return text;
}

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r";
  const size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) + 1 - first);
}

// Takes a line, trimmed, off `rest`.
std::string_view take_line(std::string_view& rest) {
  const std::string_view line = rest.substr(0, rest.find('\n'));
  rest.remove_prefix(std::min(line.size() + 1, rest.size()));
  return trimmed(line);
}

void begin_image(std::string_view line, const std::string& place, package_order& order) {
  if (line.back() != ']') throw refusal("the line is not of the form [PARTITION]");
  const std::string_view partition = trimmed(line.substr(1, line.size() - 2));
  order.images.push_back({{std::string(partition), place}, {}, {}});
  check_image_count(order.images.size());
}

// Where the value of `key` belongs at this point of the manifest.
given_text& find_word(std::string_view key, package_order& order) {
  if (order.images.empty()) {
    if (key == "version") return order.version;
    if (key == "major") return order.major_version;
    if (key == "minor") return order.minor_version;
    throw refusal(in_quotes(key) + " is not one of version, major, minor, [PARTITION]");
  }
  if (key == "file") return order.images.back().path;
  if (key == "save-as") return order.images.back().saved_name;
  throw refusal(in_quotes(key) + " is not one of file, save-as, [PARTITION]");
}

// Without a pair of quotation marks around it.
std::string_view unquoted(std::string_view value) {
  const bool quoted = value.size() >= 2 && value.front() == '"' && value.back() == '"';
  return quoted ? value.substr(1, value.size() - 2) : value;
}

void take_value(std::string_view line, const std::string& place, package_order& order) {
  const size_t equals = line.find('=');
  if (equals == std::string_view::npos)
    throw refusal("the line is not of the form KEY = VALUE or [PARTITION]");
  const std::string_view key = trimmed(line.substr(0, equals)), value = trimmed(line.substr(equals + 1));
  given_text& word = find_word(key, order);
  if (word.is_given()) throw refusal(in_quotes(key) + " stands there twice; leave one of them out");
  if (value.empty()) throw refusal(in_quotes(key) + " has no value");
  if (holds_control_character(value)) throw refusal(in_quotes(key) + " holds a control character");
  word = {std::string(unquoted(value)), place};
}

void take(std::string_view line, const std::string& place, package_order& order) {
  if (line.empty() || line.front() == '#' || line.front() == ';') return;
  if (line.find('\0') != std::string_view::npos)
    throw refusal("the line holds a NUL byte, which no text does");
  line.front() == '[' ? begin_image(line, place, order) : take_value(line, place, order);
}

// `text` as the value of a key, for a field of `capacity` bytes.
std::string as_value(std::string_view text, size_t capacity) {
  if (text.empty() || text.size() >= capacity) {
    throw refusal("the text " + in_quotes(text) + " has " + std::to_string(text.size()) +
                  " characters; a manifest takes 1 to " + std::to_string(capacity - 1));
  }
  if (holds_control_character(text))
    throw refusal("the text " + in_quotes(text) + " holds a control character");
  return " = " + in_quotes(text) + '\n';
}

}  // namespace

package_order read_manifest(const std::string& path) {
  const std::string text = read_text(path);
  std::string_view rest = text;
  if (rest.substr(0, kByteOrderMark.size()) == kByteOrderMark) rest.remove_prefix(kByteOrderMark.size());
  package_order order;
  order.manifest = path;
  for (size_t number = 1; !rest.empty(); ++number) {
    const std::string place = path + ':' + std::to_string(number) + ": ";
    in_place(place, [&] { take(take_line(rest), place, order); });
  }
  const std::filesystem::path folder = std::filesystem::path(path).parent_path();
  for (image_order& image : order.images) {
    if (!image.path.is_given())
      throw refusal(image.partition.place + "the image has no line \"file = NAME\"");
    image.path.text = folder / image.path.text;
  }
  return order;
}

std::string manifest_of(const package_head& head) {
  std::string text = "version" + as_value(field_text(head.img_version), sizeof head.img_version);
  text += "major = " + std::to_string(head.major_version) + '\n';
  text += "minor = " + std::to_string(head.minor_version) + '\n';
  for (uint32_t i = 0; i < head.image_num; ++i) {
    const std::string name(field_text(head.images[i].name));
    text.append("\n[").append(name).append("]\nfile = ").append(name);
    text += "\nsave-as" + as_value(field_text(head.images[i].file_name), sizeof head.images[i].file_name);
  }
  return text;
}

}  // namespace tools::tarv_pkg
