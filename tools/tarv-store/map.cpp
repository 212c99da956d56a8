#include "tools/tarv-store/map.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <map>

#include "tools/common/output_file.h"
#include "tools/common/refusal.h"
#include "tools/tarv-store/block_use.h"
#include "tools/tarv-store/map_svg.h"
#include "tools/tarv-store/open_store.h"
#include "tools/tarv-store/source.h"

namespace tools::tarv_store {

namespace {

struct canvas {
  size_t columns;
  bool coloured;
};

canvas canvas_of(FILE* out) {
  const int fd = fileno(out);
  if (isatty(fd) != 1) return {80, false};
  winsize size = {};
  const bool known = ioctl(fd, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
  return {std::clamp<size_t>(known ? size.ws_col : 80, 40, 200), getenv("NO_COLOR") == nullptr};
}

struct look {
  char letter;
  int background;  // of ANSI terminals; 0 for none
};

look look_of(const block_use& use) {
  constexpr int kImageBackgrounds[] = {42, 46, 45, 44};
  switch (use.kind) {
    case block_kind::bad:
      return {'X', 41};
    case block_kind::head:
      return {'H', 43};
    case block_kind::image:
      return {static_cast<char>('0' + use.first_image), kImageBackgrounds[use.first_image % 4]};
    case block_kind::padding:
      return {'-', 0};
    case block_kind::erased:
      return {'.', 0};
    case block_kind::other:
      return {'?', 0};
    default:
      return {'!', 41};
  }
}

void draw_block(FILE* out, const canvas& on, const block_use& use) {
  const auto [letter, background] = look_of(use);
  if (on.coloured && background != 0) {
    fprintf(out, "\x1b[30;%dm%c\x1b[0m", background, letter);
  } else {
    fputc(letter, out);
  }
}

void draw_partition(FILE* out, const canvas& on, const std::vector<block_use>& blocks) {
  const size_t in_row = (on.columns - 8) / 8 * 8;  // behind the number of the first
  for (size_t i = 0; i < blocks.size(); ++i) {
    if (i % in_row == 0) fprintf(out, "%6zu ", i);
    draw_block(out, on, blocks[i]);
    if ((i + 1) % in_row == 0 || i + 1 == blocks.size()) fputc('\n', out);
  }
}

void draw_legend(FILE* out, const canvas& on, const store_view& store,
                 const std::vector<std::vector<block_use>>& uses) {
  std::map<char, block_use> signs;
  for (const auto& blocks : uses) {
    for (block_use use : blocks) {
      use.last_image = use.first_image;
      signs[look_of(use).letter] = use;
    }
  }
  for (const auto& [letter, use] : signs) {
    fputs("  ", out);
    draw_block(out, on, use);
    fprintf(out, " %s\n", use_text(store, use).c_str());
  }
}

}  // namespace

void map_store(FILE* out, const std::string& svg_path) {
  if (!svg_path.empty()) check_output_path(svg_path);
  if (is_dump(svg_path)) throw refusal(in_quotes(svg_path) + " belongs to the dumps; choose another output");
  store_view store = open_store();
  const auto uses = survey(store);
  const canvas on = canvas_of(out);
  for (size_t i = 0; i < uses.size(); ++i) {
    fprintf(out, "%s, blocks of %u bytes\n", store.partitions[i].entry->name,
            store.partitions[i].entry->erase_size);
    draw_partition(out, on, uses[i]);
  }
  draw_legend(out, on, store, uses);
  if (!svg_path.empty()) {
    const std::string picture = map_as_svg(store, uses);
    output_file file(svg_path);
    file.write(picture.data(), picture.size());
    file.commit();
  }
  if (!store.fault.empty()) throw refusal(store.fault);
}

}  // namespace tools::tarv_store
