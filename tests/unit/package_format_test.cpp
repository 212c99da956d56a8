// What package bytes mean: CRC, texts, project ids, the head's own rules, and numbers in text from outside.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "main/run/number_text.h"
#include "package/crc32.h"
#include "package/format.h"
#include "package/head_rules.h"

namespace {

struct image {
  std::string name;
  std::string file_name = "f";
  uint32_t size = 0;
};

package_head head_of(const std::vector<image>& images) {
  package_head head = {};
  head.image_num = static_cast<uint16_t>(images.size());
  for (size_t i = 0; i < images.size(); ++i) {
    images[i].name.copy(head.images[i].name, sizeof head.images[i].name);
    images[i].file_name.copy(head.images[i].file_name, sizeof head.images[i].file_name);
    head.images[i].size = images[i].size;
  }
  return head;
}

TEST(Crc32, KnownAnswersAtAnySplit) {
  crc32_init_table();
  const std::string digits = "123456789";
  for (size_t split = 0; split <= digits.size(); ++split) {
    const uint32_t first = crc32_update(kCrcStart, digits.data(), split);
    EXPECT_EQ(crc32_update(first, digits.data() + split, digits.size() - split), 0x340BC6D9u) << split;
  }
  EXPECT_EQ(crc32_update(kCrcStart, nullptr, 0), 0xFFFFFFFFu);
}

TEST(Crc32, AnyLengthFromAnyAddress) {
  crc32_init_table();
  const auto bit_by_bit = [](std::string_view text) {
    uint32_t crc = kCrcStart;
    for (const char c : text) {
      crc ^= static_cast<uint8_t>(c);
      for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ ((crc & 1) != 0 ? 0xEDB88320u : 0u);
    }
    return crc;
  };
  std::string text(80, ' ');
  for (size_t i = 0; i < text.size(); ++i) text[i] = static_cast<char>(i * i * 37 + 201);
  for (size_t from = 0; from < 16; ++from) {
    for (size_t len = 0; from + len <= text.size(); ++len) {
      const auto part = std::string_view(text).substr(from, len);
      ASSERT_EQ(crc32_update(kCrcStart, part.data(), len), bit_by_bit(part)) << from << ", " << len;
    }
  }
}

TEST(ProjectType, FirstFiveCharactersDecide) {
  const std::pair<const char*, int> cases[] = {
      {"31405", 1},     {"31406", 2}, {"31407\n", 2}, {"31520V1", 3}, {"31524", 3},   {"31410", 5},
      {"31411", 4},     {"31412", 4}, {"31533", 6},   {"31535", 7},   {"52703.9", 9}, {"3140", -1},
      {"314051406", 1}, {"", -1},     {" 31405", -1}, {"31408", -1},  {nullptr, -1}};
  for (const auto& [text, type] : cases) EXPECT_EQ(vexo_tarv_get_project_type(text), type) << type;
}

TEST(PackageHead, TextsEndWithTheirField) {
  const char full[4] = {'a', 'b', 'c', 'd'};
  EXPECT_EQ(field_text(full), "abcd");
  EXPECT_EQ(field_text({'a', '\0', 'b', '\0'}), "a");
}

TEST(PackageHead, LengthWrapsAt32Bits) {
  EXPECT_EQ(package_length(head_of({})), 3536u);
  EXPECT_EQ(package_length(head_of({{"tz", "f", 5}, {"boot", "g", 7}})), 3548u);
  EXPECT_EQ(package_length(head_of({{"tz", "f", 0xFFFFFFFF}, {"boot", "g", 0xFFFFF232}})), 1u);
  package_head unused = head_of({{"tz", "f", 5}, {"boot", "g", 7}});
  unused.image_num = 1;
  EXPECT_EQ(package_length(unused), 3541u);
}

TEST(PackageHead, CrcCoversAllButItself) {
  crc32_init_table();
  package_head head = {};
  head.header_crc32 = 1;
  EXPECT_EQ(package_head_crc(head), 0x29C842F6u);
  head.images[kMaxImages - 1].crc = 0x01000000;  // the last byte covered
  EXPECT_NE(package_head_crc(head), 0x29C842F6u);
}

// The last image of each row is examined.
TEST(ExamineEntry, AcceptsAndRefuses) {
  using fault = entry_fault;
  const std::string long_name(68, 'n');
  const std::vector<std::pair<std::vector<image>, fault>> cases = {
      {{{"boot", "boot.img"}}, fault::none},
      {{{"efs2bak", long_name.substr(1)}}, fault::none},
      {{{"system", ""}}, fault::none},
      {{{"recoveryfs", "../x"}}, fault::none},
      {{{"recovery"}, {"recoveryfs"}}, fault::none},
      {{{"recovery"}, {"boot"}}, fault::none},  // the intake refuses it, with its own line
      {{{"system"}, {"boot"}}, fault::none},
      {{{"boot", "F"}, {"tz", "f"}}, fault::none},
      {{{"foo"}}, fault::unsupported_partition},
      {{{""}}, fault::unsupported_partition},
      {{{"userdata"}}, fault::unsupported_partition},
      {{{"boot" + std::string(28, '\x01')}}, fault::unsupported_partition},
      {{{"boot"}, {"recovery"}}, fault::misplaced_recovery},
      {{{"system"}, {"modem"}, {"recoveryfs"}}, fault::misplaced_recovery},
      {{{"foo"}, {"recovery"}}, fault::misplaced_recovery},
      {{{"boot"}, {"tz"}}, fault::file_name},
      {{{"boot"}, {"system", "g"}, {"tz"}}, fault::file_name}};
  for (const auto& [images, expected] : cases) {
    const auto last = static_cast<uint32_t>(images.size() - 1);
    EXPECT_EQ(examine_entry(head_of(images), last), expected) << images[0].name << ".." << images[last].name;
  }
  for (const std::string& name : {std::string(), std::string("."), std::string(".."), std::string(".x"),
                                  std::string("a/b"), std::string("/"), std::string("a/"), long_name}) {
    EXPECT_EQ(examine_entry(head_of({{"tz", name}}), 0), fault::file_name) << name;
  }
}

// A name of the run directory's own files would let an image overwrite what the run says of itself.
TEST(ExamineEntry, RefusesEveryFileOfTheRunDirectory) {
  for (const char* name :
       {"status", "status_str", "fail_reason", "download_time", "check_time", "install_time", "total_time",
        "download_size", "file_size", "pt_type", "head", "http_header", "tarv_log", "tarv_log_bak"}) {
    EXPECT_EQ(examine_entry(head_of({{"tz", name}}), 0), entry_fault::file_name) << name;
    EXPECT_EQ(examine_entry(head_of({{"tz", std::string(name) + "x"}}), 0), entry_fault::none) << name;
  }
}

TEST(ReadFileText, TextUpToTheCapacity) {
  const std::string path = testing::TempDir() + "read_file_text." + std::to_string(getpid());
  struct {
    std::string content;
    size_t capacity;
    int result;
    std::string text;
  } const cases[] = {
      {"31406\n", 64, 6, "31406\n"},
      {"", 64, -1, "before"},
      {{'3', '1', '\0', '6'}, 64, 2, "31"},
      {{'\0', 'x'}, 64, 0, ""},
      {std::string(63, 'v'), 64, 63, std::string(63, 'v')},
      {std::string(64, 'v'), 64, 63, std::string(63, 'v')},
      {std::string(2000, 'v'), 1500, 1023, std::string(1023, 'v')},
  };
  for (const auto& row : cases) {
    std::ofstream(path) << row.content;
    std::string dst = "before";
    dst.resize(row.capacity + 1, '\0');
    dst.back() = '#';
    EXPECT_EQ(read_file_text(path.c_str(), dst.data(), row.capacity), row.result) << row.content;
    EXPECT_STREQ(dst.c_str(), row.text.c_str());
    EXPECT_EQ(dst.back(), '#');
  }
  std::remove(path.c_str());
}

TEST(ReadFileText, NothingToReadOrNowhereToPutIt) {
  char dst[8] = "before";
  EXPECT_EQ(read_file_text("/nonexistent/revid", dst, sizeof dst), 0);
  EXPECT_STREQ(dst, "");
  EXPECT_EQ(read_file_text("/nonexistent/revid", nullptr, 8), -1);
}

// Texts that all read as one value.
template <typename Value>
using readings = std::vector<std::pair<std::optional<Value>, std::vector<std::string_view>>>;

TEST(NumberText, Decimal) {
  const readings<int32_t> cases = {
      {INT32_MAX, {"2147483647", "2147483648", "4294967296", "99999999999999999999"}},
      {INT32_MIN, {"-2147483648", "-2147483649", "-99999999999999999999"}},
      {2147483646, {"2147483646"}},
      {-2147483647, {"-2147483647"}},
      {12, {"12", "0012", " \t\r\n\v\f+12x9", "12 9", std::string_view("129").substr(0, 2)}},
      {0, {"0", "-0", "0x10"}},
      {std::nullopt, {"", " ", "-", "+-1", "- 1", "x1", "\xff"}}};
  for (const auto& [value, texts] : cases) {
    for (const std::string_view text : texts) EXPECT_EQ(parse_decimal(text), value) << text;
  }
}

TEST(NumberText, Hexadecimal) {
  const readings<uint32_t> cases = {
      {UINT32_MAX, {"ffffffff", "100000000", "99999999999999999999", "-1", "-100000000"}},
      {0xDD0, {"dd0", "0xDd0\r\n", "0X0dd0g", " +dd0 1", std::string_view("dd01").substr(0, 3)}},
      {2, {"-fffffffe"}},
      {0, {"0", "0x", "0xg", "-0"}},
      {std::nullopt, {"", "g", "x1", "+", "- 1", "\n"}}};
  for (const auto& [value, texts] : cases) {
    for (const std::string_view text : texts) EXPECT_EQ(parse_hex(text), value) << text;
  }
}

}  // namespace
