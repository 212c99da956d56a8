#include "tools/tarv-pkg/extract.h"

#include <filesystem>

#include "package/crc32.h"
#include "tools/common/output_file.h"
#include "tools/common/progress.h"
#include "tools/tarv-pkg/check.h"
#include "tools/tarv-pkg/head_faults.h"
#include "tools/tarv-pkg/manifest.h"
#include "tools/tarv-pkg/package_file.h"

namespace tools::tarv_pkg {

namespace {

void make_folder(const std::string& folder) {
  std::error_code error;
  std::filesystem::create_directory(folder, error);
  if (!error) return;
  throw refusal("cannot make the folder " + in_quotes(folder) + ": " + error.message());
}

// Keeps the package from being replaced by a part of it.
output_file new_file(const std::string& path, const input_file& package) {
  check_output_path(path);
  if (package.has_name(path)) throw refusal(in_quotes(path) + " is the package; choose another folder");
  return output_file(path);
}

void copy_image(const package_head& head, uint32_t i, input_file& file, output_file&& out, progress& done) {
  const auto append = [&](const void* data, size_t length) {
    out.write(data, length);
    done.add(length);
  };
  const uint32_t crc = pass_data(file, head.images[i].size, append);
  in_place(in_quotes(file.path()) + ": ", [&] { check_data_crc(head, i, crc); });
  out.commit();
}

// Appends the name of each image to `written` once its file is there.
void copy_images(const package_head& head, input_file& file, const std::string& folder,
                 std::string& written) {
  progress done("extracted", file.size() - kPackageHeadSize);
  // Each name is in the table of a group, so none leads out of the folder.
  for (uint32_t i = 0; i < head.image_num; ++i) {
    copy_image(head, i, file, new_file(folder + '/' + head.images[i].name, file), done);
    written.append(" ").append(head.images[i].name);
  }
}

}  // namespace

void extract_package(const std::string& path, const std::string& folder) {
  crc32_init_table();
  input_file file(path);
  const package_head head = read_head(file);
  std::string manifest;
  in_place(in_quotes(path) + ": ", [&] {
    check_head(head, file.size());
    check_no_partition_twice(head);
    manifest = manifest_of(head);
  });
  make_folder(folder);
  std::string written;
  try {
    copy_images(head, file, folder, written);
    output_file out = new_file(folder + "/manifest", file);
    out.write(manifest.data(), manifest.size());
    out.commit();
  } catch (const refusal& fault) {
    if (written.empty()) throw;
    throw refusal(std::string(fault.what()) + "; in " + in_quotes(folder) +
                  " there are, whole, only:" + written);
  }
}

}  // namespace tools::tarv_pkg
