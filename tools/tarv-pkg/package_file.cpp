#include "tools/tarv-pkg/package_file.h"

#include "tools/common/refusal.h"

namespace tools::tarv_pkg {

package_head read_head(input_file& file) {
  package_head head = {};
  // Before reading: for a short file the reader would say that it had changed.
  if (file.size() < sizeof head) {
    throw refusal(in_quotes(file.path()) + " is no package: it has " + std::to_string(file.size()) +
                  " bytes, a head alone has " + std::to_string(sizeof head));
  }
  file.read(&head, sizeof head);
  return head;
}

uint64_t described_length(const package_head& head) {
  uint64_t length = kPackageHeadSize;
  for (uint32_t i = 0; i < entries_in_table(head); ++i) length += head.images[i].size;
  return length;
}

}  // namespace tools::tarv_pkg
