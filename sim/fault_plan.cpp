#include "sim/fault_plan.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <numeric>
#include <sstream>
#include <string_view>

namespace {

struct effect_name {
  const char* name;
  fault_effect effect;
};
constexpr effect_name kEffects[] = {
    {"fail", fault_effect::fail},
    {"fail-late", fault_effect::fail_late},
    {"refused", fault_effect::refused},
    {"interrupted", fault_effect::interrupted},
    {"unsupported", fault_effect::unsupported},
    {"no-memory", fault_effect::no_memory},
    {"short", fault_effect::short_count},
    {"corrupt", fault_effect::corrupt},
    {"corrected", fault_effect::corrected},
    {"uncorrectable", fault_effect::uncorrectable},
    {"bad", fault_effect::bad},
    {"powercut", fault_effect::powercut},
};

// Number of the named operation, -1 for "any", -2 for an unknown name.
int parse_op(const std::string& name) {
  if (name == "any") return -1;
  const auto found = std::find(kFlashOpNames.begin(), kFlashOpNames.end(), name);
  return found == kFlashOpNames.end() ? -2 : static_cast<int>(found - kFlashOpNames.begin());
}

// The effect of that name, with "+bad" behind it when it leaves the block marked.
fault_strike parse_strike(const std::string& text) {
  constexpr std::string_view mark = "+bad";
  const size_t plus = std::min(text.find('+'), text.size());
  const bool marks = text.substr(plus) == mark;
  for (const effect_name& row : kEffects) {
    if (text.compare(0, plus, row.name) != 0 || (plus < text.size() && !marks)) continue;
    return {row.effect, marks || row.effect == fault_effect::bad};
  }
  return {};
}

}  // namespace

// OPERATION at NUMBER EFFECT [TIMES|always], or OPERATION in PARTITION BLOCK [after COUNT] EFFECT
// [TIMES|always].
bool fault_plan::parse(const std::string& line, fault& parsed) {
  std::istringstream words(line);
  std::string op, where, effect, times;
  words >> op >> where;
  parsed.line = line;
  parsed.op = parse_op(op);
  if (where == "at") {
    words >> parsed.at;
  } else if (where == "in") {
    words >> parsed.partition >> parsed.block;
  }
  words >> effect;
  if (effect == "after" && where == "in") words >> parsed.spared >> effect;
  parsed.strike = parse_strike(effect);
  if (words.fail() || parsed.op < -1 || parsed.strike.effect == fault_effect::none) return false;
  if (parsed.at == 0 && parsed.partition.empty()) return false;
  if (words >> times) parsed.times = times == "always" ? UINT64_MAX : strtoull(times.c_str(), nullptr, 10);
  return parsed.times > 0;
}

void fault_plan::load(const std::string& path) {
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    if (line.empty() || line[0] == '#') continue;
    fault parsed;
    if (!parse(line, parsed)) {
      fprintf(stderr, "sim: %s: cannot understand \"%s\"\n", path.c_str(), line.c_str());
      exit(98);
    }
    faults_.push_back(parsed);
  }
}

bool fault_plan::fits(const fault& candidate, flash_op op, const std::string& partition,
                      int64_t block) const {
  if (candidate.times == 0) return false;
  if (candidate.op != -1 && candidate.op != static_cast<int>(op)) return false;
  if (candidate.at == 0) return candidate.partition == partition && candidate.block == block;
  const uint64_t number = candidate.op == -1 ? total() : counts_[static_cast<size_t>(op)];
  // A fault that strikes more than once strikes the operations that follow, too.
  return number >= candidate.at;
}

fault_strike fault_plan::next(flash_op op, const std::string& partition, int64_t block) {
  ++counts_[static_cast<size_t>(op)];
  fault* striking = nullptr;
  for (fault& candidate : faults_) {
    if (!fits(candidate, op, partition, block)) continue;
    if (candidate.spared > 0) {
      --candidate.spared;
    } else if (striking == nullptr) {
      striking = &candidate;
    }
  }
  if (striking == nullptr) return {};
  if (striking->times != UINT64_MAX) --striking->times;
  striking->has_struck = true;
  return striking->strike;
}

std::vector<std::string> fault_plan::struck() const {
  std::vector<std::string> lines;
  for (const fault& candidate : faults_) {
    if (candidate.has_struck) lines.push_back(candidate.line);
  }
  return lines;
}

uint64_t fault_plan::total() const {
  return std::accumulate(counts_.begin(), counts_.end(), uint64_t{0});
}
