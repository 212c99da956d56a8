// Detaching from the starter, and the guard that keeps two updaters from running at once.
#ifndef TARVOLIN_MAIN_DAEMON_H
#define TARVOLIN_MAIN_DAEMON_H

constexpr int kProcessNameCapacity =
    64;  // bytes of an executable's file name with its NUL; longer ones are cut

// Continues in a process of its own: own session, directory "/", umask 0, standard descriptors on /dev/null,
// all others closed. Returns only there. The processes left behind exit with 0, even if no process could be
// made.
void tarv_daemonize();

// Stores the file name of the running executable. Returns its length, or -1, reported on standard output.
int get_process_name(char (&name)[kProcessNameCapacity]);

// Takes the lock on "/var/run/<executable>.pid" and writes the process id there: 128 bytes, the decimal id, a
// NUL, zero bytes. The lock (fcntl(2) record lock) lasts until the process ends, however it ends; the file
// stays. Returns 0. Exits with 1, reported on standard output, when another process holds the lock or the
// file cannot be opened.
int check_process_running();

#endif
