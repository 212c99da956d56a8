// The head check. Input: the head, zeros for what it lacks; magic, sizes, length, project and CRC are then
// corrected.
#include <algorithm>
#include <cstring>
#include <set>

#include "main/run/record.h"
#include "package/head_check.h"
#include "package/images.h"
#include "tests/fuzz/fuzz.h"

// What all that comes after the head check relies on.
static void examine_accepted() {
  std::set<std::string> file_names;
  uint32_t in_store = 0;
  for (const package_entry& entry : image_table()) {
    REQUIRE(group_of(entry) != kNoGroup && memchr(entry.name, '\0', sizeof entry.name) != nullptr);
    in_store += group_of(entry) == kStoreGroup;
    if (group_of(entry) != kFileGroup) continue;
    const std::string name(field_text(entry.file_name));
    REQUIRE(!name.empty() && name.size() < sizeof entry.file_name && name[0] != '.');
    REQUIRE(name.find('/') == std::string::npos && name != "status" && file_names.insert(name).second);
  }
  REQUIRE(in_store <= kStoreImagesMax);
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fake_list = "mtd0: 00b00000 00008000 \"userdata\"\n";
  tarv_init_info();
  strcpy(ginfo->revid, "31405");
  package_head& head = ginfo->head;
  std::copy_n(data, std::min(size, sizeof head), reinterpret_cast<uint8_t*>(&head));
  memcpy(head.img_version, ginfo->revid, 5);
  mend(head);
  if (head.image_num <= kMaxImages) ginfo->file_len = package_length(head);
  if (vexo_tarv_check_head_content(head) == 0) examine_accepted();
  REQUIRE(fake_open == 0);
  return 0;
}
