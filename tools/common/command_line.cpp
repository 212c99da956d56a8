#include "tools/common/command_line.h"

#include <string_view>

#include "tools/common/exit_status.h"
#include "tools/common/printable.h"
#include "tools/common/refusal.h"

namespace {

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

// What is wrong. The parser misses what is required before it minds a word that it does not know, which is as
// a rule why something is missing.
std::string fault_of(const CLI::App& app, const CLI::ParseError& error) {
  const std::vector<std::string> unknown = app.remaining(true);
  const bool misses = dynamic_cast<const CLI::RequiredError*>(&error) != nullptr;
  return misses && !unknown.empty() ? "unknown: " + in_quotes(unknown.front()) : error.what();
}

std::string help_command(const CLI::App& app) {
  const std::vector<const CLI::App*> jobs = app.get_subcommands({});
  for (const CLI::App* const job : jobs) {
    if (app.got_subcommand(job->get_name())) return app.get_name() + ' ' + job->get_name() + " --help";
  }
  return app.get_name() + " --help";
}

}  // namespace

int take_command_line(CLI::App& app, int argc, char* argv[], FILE* out, const std::function<int()>& job) {
  try {
    check_values(argc, argv);
    app.parse(argc, argv);
    return job();
  } catch (const CLI::CallForHelp&) {
    fputs(app.help().c_str(), out);
    return kDone;
  } catch (const CLI::CallForVersion& version) {
    fprintf(out, "%s\n", version.what());
    return kDone;
  } catch (const CLI::ParseError& error) {
    fprintf(stderr, "%s: %s\nTry \"%s\".\n", app.get_name().c_str(), printable(fault_of(app, error)).c_str(),
            help_command(app).c_str());
    return kWrongUsage;
  }
}
