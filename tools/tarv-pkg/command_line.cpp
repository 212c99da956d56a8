#include "tools/tarv-pkg/command_line.h"

#include <CLI/CLI.hpp>
#include <charconv>
#include <cstdio>

#include "store/partition_groups.h"
#include "tools/common/printable.h"
#include "tools/common/refusal.h"
#include "tools/tarv-pkg/check.h"
#include "tools/tarv-pkg/create.h"
#include "tools/tarv-pkg/partition_names.h"
#include "tools/tarv-pkg/show.h"

namespace {

// The words of the command line, as they were given.
struct words {
  package_order order;
  std::vector<std::string> images;
  std::vector<std::string> saved_names;
  std::string file;
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

// Always decimal: the parser by itself takes a leading zero for the mark of an octal number.
CLI::Option* add_number(CLI::App& command, const std::string& name, uint16_t& number, const char* text) {
  const auto read = [name, &number](const std::string& word) {
    const char* const end = word.data() + word.size();
    const auto [stopped, error] = std::from_chars(word.data(), end, number);
    if (error == std::errc() && stopped == end) return;
    throw CLI::ValidationError(name, in_quotes(word) + " is not a number from 0 to 65535");
  };
  return command.add_option_function<std::string>(name, read, text)->type_name("N");
}

void add_create(CLI::App& app, words& given) {
  CLI::App& create = *app.add_subcommand("create", "Make a package from image files");
  create.add_option("--version", given.order.version, "Version text; begins with the project id, as 31406")
      ->required()
      ->type_name("TEXT");
  create.add_option("--output", given.order.output, "Package file to make")->required()->type_name("FILE");
  add_number(create, "--major", given.order.major_version, "Major version number, default 0");
  add_number(create, "--minor", given.order.minor_version, "Minor version number, default 0");
  // One value each: otherwise the parser takes the images behind it for more of them.
  create.add_option("--save-as", given.saved_names, "Name for the image on the module; may be repeated")
      ->type_name("PARTITION=NAME")
      ->allow_extra_args(false);
  create.add_option("images", given.images, "Images in package order")->type_name("PARTITION=FILE");
  create.footer("Partitions:\n  store group:    " + names_in_group(kStoreGroup) + "\n  file group:     " +
                names_in_group(kFileGroup) + "\n  recovery group: " + names_in_group(kRecoveryGroup) +
                " (only in a package of their own)");
}

void add_show(CLI::App& app, words& given) {
  CLI::App& show = *app.add_subcommand("show", "Print what the head of a package says");
  show.add_flag("--json", given.as_json, "Print it as JSON");
  show.add_option("file", given.file, "Package")->required()->type_name("FILE");
}

void add_check(CLI::App& app, words& given) {
  CLI::App& check = *app.add_subcommand("check", "Tell whether the updater would take a package");
  check.add_option("file", given.file, "Package")->required()->type_name("FILE");
}

// Behind the last "/", the name of the file itself.
std::string base_name(const std::string& path) {
  return path.substr(path.rfind('/') + 1);
}

// Makes the order's images from the words on the command line.
void take_images(words& given) {
  for (const std::string& word : given.images) {
    const auto [partition, path] = divide("PARTITION=FILE", word);
    given.order.images.push_back({partition, path, base_name(path)});
  }
  for (const std::string& word : given.saved_names) {
    const auto [partition, name] = divide("PARTITION=NAME", word);
    bool found = false;
    for (image_order& image : given.order.images) {
      if (image.partition != partition) continue;
      image.saved_name = name;
      found = true;
    }
    if (!found) throw CLI::ValidationError("--save-as", "no image for partition " + in_quotes(partition));
  }
}

// The parser takes the next word for the value of an option written as "--version=", which an unset variable
// of a script makes easily.
void check_values(int argc, char* argv[]) {
  for (int i = 1; i < argc; ++i) {
    const std::string_view word = argv[i];
    if (word == "--") return;
    if (word.substr(0, 2) != "--" || word.find('=') != word.size() - 1) continue;
    throw CLI::ValidationError(in_quotes(word) + " has no value");
  }
}

void do_job(const CLI::App& app, words& given) {
  if (app.got_subcommand("create")) create_package(given.order);
  if (app.got_subcommand("show")) show_package(given.file, given.as_json);
  if (app.got_subcommand("check")) check_package(given.file);
}

}  // namespace

int run_command_line(int argc, char* argv[]) {
  CLI::App app("Makes, shows and checks firmware packages.", "tarv-pkg");
  words given;
  app.set_version_flag("-V,--tool-version", "tarv-pkg " TARVOLIN_VERSION);
  app.require_subcommand(1);  // exactly one: a package may well be called "show"
  app.footer(
      "Example:\n"
      "  tarv-pkg create --version 31406-1.2.0 --output package.img boot=boot.img system=system.img\n"
      "Exit status:\n"
      "  0 done; 1 refused, a fault found, or a file that cannot be read or written; 2 wrong usage");
  add_create(app, given);
  add_show(app, given);
  add_check(app, given);
  try {
    check_values(argc, argv);
    app.parse(argc, argv);
    take_images(given);
  } catch (const CLI::CallForHelp&) {
    puts(app.help().c_str());
    return kDone;
  } catch (const CLI::CallForVersion& version) {
    puts(version.what());
    return kDone;
  } catch (const CLI::ParseError& error) {
    fprintf(stderr, "tarv-pkg: %s\nTry \"tarv-pkg --help\" or \"tarv-pkg create --help\".\n",
            printable(error.what()).c_str());
    return kWrongUsage;
  }
  do_job(app, given);
  return kDone;
}
