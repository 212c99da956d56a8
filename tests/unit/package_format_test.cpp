// What package bytes mean: CRC, texts, project ids, the head's own rules, and numbers in text from outside.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/number_text.h"
#include "package/crc32.h"
#include "package/format.h"
#include "package/head_rules.h"

namespace {

using namespace std::string_literals;

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

TEST(Crc32, AnyLengthFromAnyAddress) {
  crc32_init_table();
  EXPECT_EQ(crc32_update(kCrcStart, "123456789", 9), 0x340BC6D9u);  // published
  std::string text(80, ' ');
  for (size_t i = 0; i < text.size(); ++i) text[i] = static_cast<char>(i * i * 37 + 201);
  for (size_t from = 0; from < 16; ++from) {
    uint32_t by_bytes = kCrcStart;
    for (size_t len = 0; from + len < text.size(); ++len) {
      ASSERT_EQ(crc32_update(kCrcStart, &text[from], len), by_bytes) << from << ", " << len;
      by_bytes = crc32_update(by_bytes, &text[from + len], 1);
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

TEST(PackageHead, LengthIsOfUsedEntriesModulo32Bits) {
  package_head head = head_of({{"tz", "f", 0xFFFFFFFF}, {"boot", "g", 0xFFFFF232}, {"sbl", "h", 5}});
  EXPECT_EQ(package_length(head), 6u);
  head.image_num = 2;
  EXPECT_EQ(package_length(head), 1u);
}

// The last image of each row is examined.
TEST(ExamineEntry, AcceptsAndRefuses) {
  using fault = entry_fault;
  const std::string longest(67, 'n');
  const struct {
    std::vector<image> images;
    fault expected;
  } cases[] = {
      {{{"boot", "boot.img"}}, fault::none},
      {{{"efs2bak", longest}}, fault::none},
      {{{"tz", "statusx"}}, fault::none},
      {{{"system", ""}}, fault::none},
      {{{"recoveryfs", "../x"}}, fault::none},
      {{{"recovery"}, {"boot"}}, fault::none},  // a fault of the table
      {{{"system"}, {"boot"}}, fault::none},
      {{{"boot", "F"}, {"tz", "f"}}, fault::none},
      {{{"foo"}}, fault::unsupported_partition},
      {{{""}}, fault::unsupported_partition},
      {{{"Boot"}}, fault::unsupported_partition},
      {{{"userdata"}}, fault::unsupported_partition},
      {{{"boot" + std::string(28, '\x01')}}, fault::unsupported_partition},
      {{{"boot"}, {"recovery"}}, fault::misplaced_recovery},
      {{{"system"}, {"modem"}, {"recoveryfs"}}, fault::misplaced_recovery},
      {{{"foo"}, {"recovery"}}, fault::misplaced_recovery},
      {{{"tz", ""}}, fault::file_name_empty},
      {{{"tz", longest + "n"}}, fault::file_name_unterminated},
      {{{"tz", "."}}, fault::file_name_hidden},
      {{{"tz", ".x"}}, fault::file_name_hidden},
      {{{"tz", "a/b"}}, fault::file_name_with_folder},
      {{{"tz", "a/"}}, fault::file_name_with_folder},
      {{{"boot"}, {"system", "g"}, {"tz"}}, fault::file_name_taken},
  };
  for (const auto& c : cases) {
    const auto last = static_cast<uint32_t>(c.images.size() - 1);
    EXPECT_EQ(examine_entry(head_of(c.images), last), c.expected) << last << c.images[last].file_name;
  }
  // A file of the run directory's own would let an image overwrite what the run says of itself.
  for (const char* name :
       {"status", "status_str", "fail_reason", "download_time", "check_time", "install_time", "total_time",
        "download_size", "file_size", "pt_type", "head", "http_header", "tarv_log", "tarv_log_bak"}) {
    EXPECT_EQ(examine_entry(head_of({{"tz", name}}), 0), fault::file_name_of_run) << name;
  }
}

TEST(ExamineTable, AcceptsAndRefuses) {
  const struct {
    std::vector<image> images;
    table_fault expected;
  } cases[] = {
      {{{"boot"}, {"system"}}, table_fault::none},
      {{{"recovery"}, {"recoveryfs"}}, table_fault::none},
      {std::vector<image>(8, {"modem"}), table_fault::none},
      {std::vector<image>(9, {"modem"}), table_fault::too_many_store_images},
      {{}, table_fault::unknown_first_entry},
      {{{"recovery"}, {"recoveryfs"}, {"boot"}}, table_fault::foreign_image},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(examine_table(head_of(c.images)), c.expected) << c.images.size();
  }
}

TEST(ReadFileText, TextUpToTheCapacity) {
  const std::string path = testing::TempDir() + "read_file_text." + std::to_string(getpid());
  const struct {
    std::string content;
    size_t capacity;
    int result;
    std::string text;
  } cases[] = {{"31406\n", 64, 6, "31406\n"},
               {"", 64, -1, "before"},
               {"31\0006"s, 64, 2, "31"},
               {"\0x"s, 64, 0, ""},
               {std::string(63, 'v'), 64, 63, std::string(63, 'v')},
               {std::string(64, 'v'), 64, 63, std::string(63, 'v')},
               {std::string(2000, 'v'), 1500, 1023, std::string(1023, 'v')}};
  for (const auto& c : cases) {
    std::ofstream(path) << c.content;
    std::string dst = "before";
    dst.resize(c.capacity + 1, '\0');
    dst.back() = '#';
    EXPECT_EQ(read_file_text(path.c_str(), dst.data(), c.capacity), c.result) << c.content;
    EXPECT_EQ(dst.c_str(), c.text);
    EXPECT_EQ(dst.back(), '#');
  }
  std::remove(path.c_str());
  char dst[8] = "before";
  EXPECT_EQ(read_file_text(path.c_str(), dst, sizeof dst), 0);
  EXPECT_STREQ(dst, "");
  EXPECT_EQ(read_file_text(path.c_str(), nullptr, 8), -1);
}

TEST(NumberText, IsHeldAtItsLimits) {
  constexpr auto none = std::nullopt;
  constexpr uint32_t most = UINT32_MAX;
  const struct {
    std::optional<int32_t> decimal;
    std::optional<uint32_t> hexadecimal;
    std::vector<std::string_view> texts;
  } cases[] = {{0, 0, {"0", "-0", "0x", "0xg"}},
               {0, 0xDD0, {"0xDd0\r\n", "0X0dd0g"}},
               {none, 0xDD0, {"dd0"}},
               {12, 18, {"12", "0012", " \t\r\n\v\f+12x9", "12 9", {"129", 2}}},
               {none, 2, {"-fffffffe"}},
               {-1, most, {"-1"}},
               {2147483646, most, {"2147483646"}},
               {-2147483647, most, {"-2147483647"}},
               {INT32_MAX, most, {"2147483647", "2147483648", "4294967296", "99999999999999999999"}},
               {INT32_MIN, most, {"-2147483648", "-2147483649", "-99999999999999999999"}},
               {none, most, {"ffffffff", "fffffffff"}},
               {none, none, {"", " ", "\n", "-", "+", "+-1", "- 1", "x1", "g", "\xff"}}};
  for (const auto& row : cases) {
    for (const std::string_view text : row.texts) {
      EXPECT_EQ(parse_decimal(text), row.decimal) << text;
      EXPECT_EQ(parse_hex(text), row.hexadecimal) << text;
    }
  }
}

}  // namespace
