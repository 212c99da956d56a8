#include "sim/fault_plan.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <numeric>
#include <sstream>

namespace {

struct effect_name {
  const char* name;
  fault_effect effect;
};
constexpr effect_name kEffects[] = {
    {"fail", fault_effect::fail},
    {"fail-late", fault_effect::fail_late},
    {"interrupted", fault_effect::interrupted},
    {"unsupported", fault_effect::unsupported},
    {"no-memory", fault_effect::no_memory},
    {"short", fault_effect::short_count},
    {"corrupt", fault_effect::corrupt},
    {"corrected", fault_effect::corrected},
    {"uncorrectable", fault_effect::uncorrectable},
    {"powercut", fault_effect::powercut},
};

// Number of the named operation, -1 for "any", -2 for an unknown name.
int parse_op(const std::string& name) {
  if (name == "any") return -1;
  const auto found = std::find(kFlashOpNames.begin(), kFlashOpNames.end(), name);
  return found == kFlashOpNames.end() ? -2 : static_cast<int>(found - kFlashOpNames.begin());
}

fault_effect parse_effect(const std::string& name) {
  for (const effect_name& row : kEffects) {
    if (name == row.name) return row.effect;
  }
  return fault_effect::none;
}

}  // namespace

// OPERATION at NUMBER EFFECT [TIMES|always], or OPERATION in PARTITION BLOCK EFFECT [TIMES|always].
bool fault_plan::parse(const std::string& line, fault& parsed) {
  std::istringstream words(line);
  std::string op, where, effect, times;
  words >> op >> where;
  parsed.op = parse_op(op);
  if (where == "at") {
    words >> parsed.at;
  } else if (where == "in") {
    words >> parsed.partition >> parsed.block;
  }
  words >> effect;
  parsed.effect = parse_effect(effect);
  if (words.fail() || parsed.op < -1 || parsed.effect == fault_effect::none) return false;
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

bool fault_plan::strikes(const fault& candidate, flash_op op, const std::string& partition,
                         int64_t block) const {
  if (candidate.times == 0) return false;
  if (candidate.op != -1 && candidate.op != static_cast<int>(op)) return false;
  if (candidate.at == 0) return candidate.partition == partition && candidate.block == block;
  const uint64_t number = candidate.op == -1 ? total() : counts_[static_cast<size_t>(op)];
  // A fault that strikes more than once strikes the operations that follow, too.
  return number >= candidate.at;
}

fault_effect fault_plan::next(flash_op op, const std::string& partition, int64_t block) {
  ++counts_[static_cast<size_t>(op)];
  for (fault& candidate : faults_) {
    if (!strikes(candidate, op, partition, block)) continue;
    if (candidate.times != UINT64_MAX) --candidate.times;
    return candidate.effect;
  }
  return fault_effect::none;
}

uint64_t fault_plan::total() const {
  return std::accumulate(counts_.begin(), counts_.end(), uint64_t{0});
}
