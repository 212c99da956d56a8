#include "tools/tarv-pkg/digests.h"

#include <algorithm>

#include "fetch/digests.h"
#include "package/crc32.h"
#include "tools/common/output_file.h"
#include "tools/common/progress.h"
#include "tools/tarv-pkg/check.h"
#include "tools/tarv-pkg/package_file.h"

namespace tools::tarv_pkg {

namespace {

// Takes the bytes of a package in pieces of any size.
class chunk_digests {
 public:
  explicit chunk_digests(uint64_t length) : chunk_(fetch::chunk_for(length)) { list_.length = length; }

  void add(const void* data, size_t size) {
    const auto* bytes = static_cast<const char*>(data);
    while (size > 0) {
      const size_t piece = std::min(size, chunk_ - gathered_.size());
      gathered_.append(bytes, piece);
      bytes += piece;
      size -= piece;
      if (gathered_.size() == chunk_) finish_chunk();
    }
  }

  std::string text() {
    if (!gathered_.empty()) finish_chunk();
    list_.chunk = static_cast<uint32_t>(chunk_);
    return fetch::digests_text(list_);
  }

 private:
  void finish_chunk() {
    list_.sha256.push_back(fetch::sha256_of(gathered_.data(), gathered_.size()));
    gathered_.clear();
  }

  size_t chunk_;
  std::string gathered_;
  fetch::digest_list list_;
};

}  // namespace

void write_digests(const std::string& path, const std::string& output) {
  crc32_init_table();
  input_file file(path);
  const std::string target = output.empty() ? path + ".digests" : output;
  const bool streams = target == kStandardOutput;
  streams ? check_output_stream(stdout) : check_output_path(target);
  if (file.has_name(target)) throw refusal(in_quotes(target) + " is the package; choose another output");
  const package_head head = read_head(file);
  chunk_digests digests(file.size());
  // A package that is damaged already must not be signed.
  in_place(in_quotes(path) + ": ", [&] {
    check_head(head, file.size());
    progress done("digested", file.size());
    digests.add(&head, sizeof head);
    for (uint32_t i = 0; i < head.image_num; ++i) {
      const auto take = [&](const void* data, size_t length) {
        digests.add(data, length);
        done.add(length);
      };
      check_data_crc(head, i, pass_data(file, head.images[i].size, take));
    }
  });
  const std::string text = digests.text();
  if (streams) {
    write_stream(stdout, text.data(), text.size());
    return;
  }
  output_file out(target);
  out.write(text.data(), text.size());
  out.commit();
}

}  // namespace tools::tarv_pkg
