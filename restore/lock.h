// The updater's lock: one updater or one restore at a time.
#ifndef TARVOLIN_RESTORE_LOCK_H
#define TARVOLIN_RESTORE_LOCK_H

namespace restore {

// Takes the record lock on `path`, which is made if it is missing, and writes the process id there as the
// updater does. The lock lasts until the process ends, however it ends. Returns 0, or -1 with a fault when
// somebody else has it or the file cannot be opened.
[[nodiscard]] int take_lock(const char* path);

}  // namespace restore

#endif
