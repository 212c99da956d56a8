#include "tools/tarv-pkg/command_line.h"

#include <cstdio>
#include <optional>
#include <sstream>

#include "base/version.h"
#include "store/partition_groups.h"
#include "tools/common/command_line.h"
#include "tools/common/refusal.h"
#include "tools/tarv-pkg/check.h"
#include "tools/tarv-pkg/create.h"
#include "tools/tarv-pkg/diff.h"
#include "tools/tarv-pkg/digests.h"
#include "tools/tarv-pkg/extract.h"
#include "tools/tarv-pkg/manifest.h"
#include "tools/tarv-pkg/partition_names.h"
#include "tools/tarv-pkg/show.h"

namespace tools::tarv_pkg {

namespace {

// The words of the command line, as they were given.
struct words {
  std::optional<std::string> manifest, version, major_version, minor_version;
  std::vector<std::string> images;
  std::vector<std::string> saved_names;
  std::string file, other_file;
  std::string output;
  bool as_json = false;
};

// "LEFT=RIGHT", divided at the first "=". Both sides must be there.
std::pair<std::string, std::string> divide(const std::string& form, const std::string& word) {
  const size_t at = word.find('=');
  if (at == std::string::npos || at == 0 || at + 1 == word.size()) {
    throw CLI::ValidationError(in_quotes(word) + " is not of the form " + form);
  }
  return {word.substr(0, at), word.substr(at + 1)};
}

std::string number_fault(const std::string& word) {
  return version_number(word) ? "" : in_quotes(word) + " is not a number from 0 to 65535";
}

// Words in indented lines that fit a screen.
std::string folded(const std::string& words) {
  std::string text;
  size_t columns = 80;
  std::istringstream rest(words);
  for (std::string word; rest >> word; columns += 1 + word.size()) {
    if (columns + 1 + word.size() > 78) {
      text += text.empty() ? " " : "\n ";
      columns = 1;
    }
    text += ' ' + word;
  }
  return text;
}

void add_create(CLI::App& app, words& given) {
  CLI::App& create = *app.add_subcommand("create", "Make a package from image files");
  create.add_option("-o,--output", given.output, "Package file to make, - for standard output")
      ->required()
      ->type_name("FILE");
  create.add_option("--manifest", given.manifest, "Take images and version from this text file")
      ->type_name("FILE");
  create.add_option("--version", given.version, "Version text, begins with the project id")
      ->type_name("TEXT");
  create.add_option("--major", given.major_version, "Major version number, default 0")
      ->type_name("N")
      ->check(number_fault);
  create.add_option("--minor", given.minor_version, "Minor version number, default 0")
      ->type_name("N")
      ->check(number_fault);
  // One value each: otherwise the parser takes the images behind it for more of them.
  create.add_option("--save-as", given.saved_names, "Name on the module; may be repeated")
      ->type_name("PARTITION=NAME")
      ->allow_extra_args(false);
  create.add_option("images", given.images, "Images in package order")->type_name("PARTITION=FILE");
  create.footer("Partitions:\n" + folded(names_in_group(kStoreGroup) + ' ' + names_in_group(kFileGroup)) +
                "\nIn a package of their own: " + names_in_group(kRecoveryGroup));
}

CLI::App& add_reader(CLI::App& app, const char* name, const char* text, words& given) {
  CLI::App& command = *app.add_subcommand(name, text);
  command.add_option("file", given.file, "Package")->required()->type_name("FILE");
  return command;
}

void add_readers(CLI::App& app, words& given) {
  CLI::App& show = add_reader(app, "show", "Print what the head of a package says", given);
  add_reader(app, "check", "Tell whether the updater would take a package", given);
  CLI::App& diff = add_reader(app, "diff", "Tell what differs between two packages", given);
  diff.add_option("other", given.other_file, "Package to compare it with")->required()->type_name("FILE");
  diff.footer("Exit status: 0 the same, 1 different, 2 trouble");
  for (CLI::App* const command : {&show, &diff})
    command->add_flag("--json", given.as_json, "Print it as JSON");
  add_reader(app, "digests", "Write what proves a package chunk by chunk", given)
      .add_option("-o,--output", given.output, "File to make, default PACKAGE.digests")
      ->type_name("FILE");
  add_reader(app, "extract", "Write images and a manifest into a folder", given)
      .add_option("-o,--output", given.output, "Folder, made if it is not there")
      ->required()
      ->type_name("FOLDER");
}

void take_images(const words& given, package_order& order) {
  for (const std::string& word : given.images) {
    const auto [partition, path] = divide("PARTITION=FILE", word);
    order.images.push_back({{partition, {}}, {path, {}}, {}});
  }
  for (const std::string& word : given.saved_names) {
    const auto [partition, name] = divide("PARTITION=NAME", word);
    bool found = false;
    for (image_order& image : order.images) {
      if (image.partition.text != partition) continue;
      if (image.saved_name.is_given())
        throw CLI::ValidationError("--save-as", "partition " + in_quotes(partition) + " is named twice");
      image.saved_name.text = name;
      found = true;
    }
    if (!found) throw CLI::ValidationError("--save-as", "no image for partition " + in_quotes(partition));
  }
}

// What the command line gives counts more than what the manifest gives.
void take_word(const std::optional<std::string>& word, given_text& into) {
  if (word) into = {*word, {}};
}

package_order order_of(const words& given) {
  package_order order;
  if (given.manifest) {
    if (!given.images.empty() || !given.saved_names.empty()) throw CLI::ExcludesError("--manifest", "images");
    order = read_manifest(*given.manifest);
  } else {
    take_images(given, order);
  }
  if (!given.version && !order.version.is_given())
    throw CLI::RequiredError("--version, here or in a manifest,");
  take_word(given.version, order.version);
  take_word(given.major_version, order.major_version);
  take_word(given.minor_version, order.minor_version);
  order.output = given.output;
  return order;
}

int do_job(const CLI::App& app, const words& given) {
  if (app.got_subcommand("create")) create_package(order_of(given));
  if (app.got_subcommand("show")) show_package(given.file, given.as_json);
  if (app.got_subcommand("check")) check_package(given.file);
  if (app.got_subcommand("digests")) write_digests(given.file, given.output);
  if (app.got_subcommand("extract")) extract_package(given.file, given.output);
  if (!app.got_subcommand("diff")) return kDone;
  return diff_packages(given.file, given.other_file, given.as_json) ? kDifferent : kDone;
}

}  // namespace

int run_command_line(int argc, char* argv[]) {
  CLI::App app("Makes, shows, checks, compares and takes apart firmware packages.", "tarv-pkg");
  words given;
  app.set_version_flag("-V,--version", std::string("tarv-pkg ") + version_text);
  app.require_subcommand(1);  // exactly one: a package may well be called "show"
  add_create(app, given);
  add_readers(app, given);
  // Behind the jobs, which would take it over.
  app.footer(
      "Example:\n"
      "  tarv-pkg create --version 31406-1.2 -o package.img boot=boot.img tz=tz.img\n"
      "Exit status:\n"
      "  0 done; 1 refused, a fault found, or a file that cannot be read or written;\n"
      "  2 wrong usage; with diff: 0 the same, 1 different, 2 trouble; 130 interrupted");
  return take_command_line(app, argc, argv, stdout, [&] { return do_job(app, given); });
}

}  // namespace tools::tarv_pkg
