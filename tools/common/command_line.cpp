#include "tools/common/command_line.h"

#include <algorithm>
#include <cctype>
#include <string_view>

#include "tools/common/exit_status.h"
#include "tools/common/printable.h"
#include "tools/common/refusal.h"

namespace tools {

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

// The command that was given, or null.
const CLI::App* job_of(const CLI::App& app) {
  for (const CLI::App* const job : app.get_subcommands({})) {
    if (app.got_subcommand(job->get_name())) return job;
  }
  return nullptr;
}

// The first word that the command cannot do without and has not got; empty when there is none.
std::string missing_word(const CLI::App* job) {
  if (job == nullptr) return "";
  for (const CLI::Option* const option : job->get_options()) {
    if (!option->get_required() || option->count() != 0) continue;
    std::string name = option->get_name();
    if (name[0] != '-') std::transform(name.begin(), name.end(), name.begin(), toupper);
    return name + " is missing: " + option->get_description();
  }
  return "";
}

// What is wrong. The parser misses what is required before it minds a word that it does not know, which is as
// a rule why something is missing.
std::string fault_of(const CLI::App& app, const CLI::ParseError& error) {
  if (dynamic_cast<const CLI::RequiredError*>(&error) == nullptr) return error.what();
  const std::vector<std::string> unknown = app.remaining(true);
  if (!unknown.empty()) return "unknown: " + in_quotes(unknown.front());
  const std::string missing = missing_word(job_of(app));
  return missing.empty() ? error.what() : missing;
}

std::string help_command(const CLI::App& app) {
  const CLI::App* const job = job_of(app);
  return app.get_name() + (job == nullptr ? "" : ' ' + job->get_name()) + " --help";
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

}  // namespace tools
