// The three stages of a run. Each announces itself in the log, publishes its status, does its work and, when
// that succeeded, records how long it took. Each returns 0, or -1 with the failed status published.
#ifndef TARVOLIN_MAIN_STAGES_H
#define TARVOLIN_MAIN_STAGES_H

// Fetches the package and puts every image where it waits for installation.
[[nodiscard]] int vexo_tarv_download();
// Reads everything back.
[[nodiscard]] int vexo_tarv_check();
// Installs; sets the final status itself.
[[nodiscard]] int vexo_tarv_install();

#endif
