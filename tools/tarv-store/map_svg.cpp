#include "tools/tarv-store/map_svg.h"

#include <map>

namespace tools::tarv_store {

namespace {

constexpr size_t kInRow = 64;
constexpr size_t kPitch = 14;  // from block to block, pixels
constexpr size_t kLeft = 60;   // room for block numbers
constexpr size_t kLine = 24;   // of text

constexpr const char* kStyle =
    "<style>text{font:13px sans-serif;fill:#1f2d3d}rect{stroke:#7b8794}.paper{fill:#f7f9fc;stroke:none}"
    ".head{fill:#e0a800}.bad{fill:#2b333b}.unreadable{fill:#c0392b}.padding{fill:#9fb3c8}.erased{fill:none}"
    ".other{fill:#b8a99a}.image0{fill:#3fa34d}.image1{fill:#2f80c2}.image2{fill:#9b59b6}.image3{fill:#d9772b}"
    ".image4{fill:#1aa39a}.image5{fill:#c2568f}.image6{fill:#8a9a2c}.image7{fill:#6c7ae0}"
    "@media(prefers-color-scheme:dark){text{fill:#e4eaf0}.paper{fill:#161b22}.bad{fill:#e4eaf0}}</style>\n";

// The class of the style sheet; images have colours of their own.
std::string class_of(const block_use& use) {
  const std::string name = kind_name(use.kind);
  return use.kind == block_kind::image ? name + std::to_string(use.first_image) : name;
}

std::string text_at(size_t x, size_t y, const std::string& text) {
  return "<text x=\"" + std::to_string(x) + "\" y=\"" + std::to_string(y) + "\">" + text + "</text>\n";
}

std::string cell_at(size_t x, size_t y, const std::string& style, const std::string& title) {
  return "<rect class=\"" + style + "\" x=\"" + std::to_string(x) + "\" y=\"" + std::to_string(y) +
         "\" width=\"12\" height=\"12\"><title>" + title + "</title></rect>\n";
}

// Draws below `y` and moves it on.
std::string partition_picture(const store_view& store, const std::string& name,
                              const std::vector<block_use>& blocks, size_t& y) {
  std::string out = text_at(10, y += kLine, name);
  y += kPitch;
  for (size_t i = 0; i < blocks.size(); ++i) {
    const size_t row = y + i / kInRow * kPitch;
    if (i % kInRow == 0) out += text_at(10, row + 11, std::to_string(i));
    out += cell_at(kLeft + i % kInRow * kPitch, row, class_of(blocks[i]),
                   name + " block " + std::to_string(i) + ": " + use_text(store, blocks[i]));
  }
  y += (blocks.size() + kInRow - 1) / kInRow * kPitch;
  return out;
}

std::string legend(const store_view& store, const std::vector<std::vector<block_use>>& uses, size_t& y) {
  std::map<std::string, block_use> kinds;
  for (const auto& blocks : uses) {
    for (const block_use& use : blocks) kinds[class_of(use)] = {use.kind, use.first_image, use.first_image};
  }
  std::string out;
  for (const auto& [style, use] : kinds) {
    const std::string text = use_text(store, use);
    y += kLine;
    out += cell_at(kLeft, y - 11, style, text) + text_at(kLeft + 20, y, text);
  }
  return out;
}

}  // namespace

// The texts need no escapes: partitions and images have names out of tables.
std::string map_as_svg(const store_view& store, const std::vector<std::vector<block_use>>& uses) {
  size_t y = 0;
  std::string body;
  for (size_t i = 0; i < uses.size(); ++i) {
    body += partition_picture(store, store.partitions[i].entry->name, uses[i], y);
  }
  body += legend(store, uses, y);
  const std::string size = "width=\"" + std::to_string(kLeft + kInRow * kPitch + 10) + "\" height=\"" +
                           std::to_string(y + kLine) + "\"";
  return "<svg xmlns=\"http://www.w3.org/2000/svg\" " + size +
         " role=\"img\">\n<title>The store's blocks</title>\n" + kStyle + "<rect class=\"paper\" " + size +
         "/>\n" + body + "</svg>\n";
}

}  // namespace tools::tarv_store
