#include "tools/tarv-store/command_line.h"

#include <charconv>
#include <optional>

#include "base/version.h"
#include "tools/common/command_line.h"
#include "tools/common/refusal.h"
#include "tools/tarv-store/dump.h"
#include "tools/tarv-store/dumps.h"
#include "tools/tarv-store/images.h"
#include "tools/tarv-store/map.h"
#include "tools/tarv-store/show.h"
#include "tools/tarv-store/source.h"

namespace tools::tarv_store {

namespace {

// The words of the command line, as they were given.
struct words {
  std::string dumps;
  std::optional<uint32_t> erase_size;
  std::string image;
  std::string output;
  std::string folder;
  std::string svg;
  bool as_json = false;
};

// Always decimal: the parser by itself takes a leading zero for the mark of an octal number.
uint32_t read_erase_size(const std::string& word) {
  uint32_t number = 0;
  const char* const end = word.data() + word.size();
  const auto [stopped, error] = std::from_chars(word.data(), end, number);
  if (error == std::errc() && stopped == end && is_erase_size(number)) return number;
  throw CLI::ValidationError("--erase-size", in_quotes(word) + " is not a power of two from 512 to 16777216");
}

void add_source(CLI::App& app, words& given) {
  CLI::Option* const mtd = app.add_flag("--mtd", "Read the flash of this module (the default)");
  CLI::Option* const dumps = app.add_option("--dumps", given.dumps, "Read the dumps NAME.bin in this folder")
                                 ->type_name("FOLDER")
                                 ->excludes(mtd);
  app.add_option_function<std::string>(
         "--erase-size", [&](const std::string& word) { given.erase_size = read_erase_size(word); },
         "Erase block, default that in sizes, or 131072")
      ->type_name("BYTES")
      ->needs(dumps);
}

void add_commands(CLI::App& app, words& given) {
  CLI::App& show = *app.add_subcommand("show", "Print the head record and what every block holds");
  show.add_flag("--json", given.as_json, "Print it as JSON");
  CLI::App& verify = *app.add_subcommand("verify", "Check the CRC of every image");
  verify.add_flag("--json", given.as_json, "Print it as JSON");
  CLI::App& extract = *app.add_subcommand("extract", "Copy an image into a file");
  extract.add_option("image", given.image, "Name of the image, or its number")
      ->required()
      ->type_name("IMAGE");
  extract.add_option("output,-o,--output", given.output, "File to make, - for standard output")
      ->required()
      ->type_name("FILE");
  CLI::App& map = *app.add_subcommand("map", "Draw the blocks of the store partitions");
  map.add_option("--svg", given.svg, "Draw them into this file, too")->type_name("FILE");
  CLI::App& dump = *app.add_subcommand("dump", "Copy the store partitions into a folder");
  dump.add_option("folder", given.folder, "Folder to make")->required()->type_name("FOLDER");
  for (CLI::App* const command : {&show, &verify, &extract, &map, &dump}) command->fallthrough();
}

void do_job(const CLI::App& app, const words& given, FILE* out) {
  if (app.count("--dumps") != 0) read_from_dumps(given.dumps, given.erase_size);
  if (app.got_subcommand("show")) show_store(out, given.as_json);
  if (app.got_subcommand("verify")) verify_store(out, given.as_json);
  if (app.got_subcommand("extract")) extract_image(out, given.image, given.output);
  if (app.got_subcommand("map")) map_store(out, given.svg);
  if (app.got_subcommand("dump")) dump_store(out, given.folder);
}

}  // namespace

int run_command_line(int argc, char* argv[], FILE* out) {
  CLI::App app("Shows, verifies and draws a store, takes out images; never writes to flash.", "tarv-store");
  words given;
  app.set_version_flag("-V,--version", std::string("tarv-store ") + version_text);
  app.require_subcommand(1);
  app.footer(
      "Exit status:\n"
      "  0 done; 1 a fault found, or something that cannot be read or written;\n"
      "  2 wrong usage; 130 interrupted");
  add_source(app, given);
  add_commands(app, given);
  return take_command_line(app, argc, argv, out, [&] {
    do_job(app, given, out);
    return kDone;
  });
}

}  // namespace tools::tarv_store
