// Why a restore does not come to its end, in one sentence; and what happened on the way without ending it.
//
// Texts may quote what stands on flash. Here they lose what a terminal would obey.
#ifndef TARVOLIN_RESTORE_FAULT_H
#define TARVOLIN_RESTORE_FAULT_H

#include <cstddef>

namespace restore {

constexpr size_t kFaultCapacity = 512;  // bytes of a sentence with its NUL; a longer one is cut

// Keeps the sentence; of several the first, which is nearest to the cause. Returns -1 always.
[[gnu::format(printf, 1, 2)]] int fault(const char* format, ...);

// The same with the system's own words for errno behind it.
[[gnu::format(printf, 1, 2)]] int system_fault(const char* format, ...);

// The sentence kept, or "".
[[nodiscard]] const char* fault_text();

// Forgets it: for more than one restore in a process.
void forget_fault();

// A line on standard error: something fails on flash, and the restore goes on.
[[gnu::format(printf, 1, 2)]] void warn(const char* format, ...);

// `text` with control characters, bytes past ASCII and backslashes as \xNN, cut at `capacity`.
void make_printable(const char* text, char* out, size_t capacity);

}  // namespace restore

#endif
