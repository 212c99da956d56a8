// A job that is not done ends with a refusal: one sentence for the user, and exit status 1.
#ifndef TARVOLIN_TOOLS_COMMON_REFUSAL_H
#define TARVOLIN_TOOLS_COMMON_REFUSAL_H

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>
#include <string_view>

namespace tools {

// Thrown where the fault is found; what() names the object, the numbers and, where there is one, the way out.
// It may quote hostile text: escape it before printing.
struct refusal : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// The refusal for a system call that has just failed: `what` and the system's own words.
inline refusal system_refusal(const std::string& what) {
  return refusal(what + ": " + strerror(errno));
}

// A name or text of the user or of a package, as sentences quote it.
inline std::string in_quotes(std::string_view text) {
  return '"' + std::string(text) + '"';
}

// Does `work`; a refusal that comes out of it gets `place` in front.
template <typename Work>
void in_place(const std::string& place, const Work& work) {
  try {
    work();
  } catch (const refusal& fault) {
    throw refusal(place + fault.what());
  }
}

}  // namespace tools

#endif
