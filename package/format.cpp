#include "package/format.h"

#include <cstdio>
#include <memory>

namespace {

struct project_row {
  const char* id;
  int type;
};

// Ids that share a type accept each other's packages.
constexpr project_row kProjects[] = {
    {"31405", 1}, {"31406", 2}, {"31407", 2}, {"31520", 3}, {"31524", 3}, {"31410", 5},
    {"31411", 4}, {"31412", 4}, {"31533", 6}, {"31535", 7}, {"52703", 9},
};
constexpr size_t kProjectIdLength = 5;

struct file_closer {
  void operator()(FILE* file) const { fclose(file); }
};

}  // namespace

int vexo_tarv_get_project_type(const char* text) {
  if (text == nullptr) return -1;
  for (const project_row& row : kProjects) {
    // No NUL needed within these five: a shorter text differs at its NUL.
    if (strncmp(row.id, text, kProjectIdLength) == 0) return row.type;
  }
  return -1;
}

int read_file_text(const char* path, char* dst, size_t capacity) {
  if (dst == nullptr || capacity == 0) {
    printf("input pointer is null!");
    return -1;
  }
  char text[1024] = "";
  const std::unique_ptr<FILE, file_closer> file(fopen(path, "re"));
  if (file && fread(text, 1, sizeof text - 1, file.get()) == 0) return -1;
  const size_t length = strnlen(text, capacity - 1);
  memcpy(dst, text, length);
  dst[length] = '\0';
  return static_cast<int>(length);
}
