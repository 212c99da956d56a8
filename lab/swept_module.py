"""The module on which the fault sweep runs an update again and again, and what the update is."""
import errno
import os
import shutil
import subprocess

from lab import servers
from lab.expected import expected_files, expected_flash
from lab.module import BIN_DIR, KIB, MIB, NAMESPACE
from lab.packages import images
from lab.sim_module import SimModule

# The store goes on into "recoveryfs", and has room for one block more; "boot" for two.
PARTITIONS = {"userdata": 12 * MIB + 512 * KIB, "recoveryfs": 5 * MIB + 512 * KIB, "boot": 2 * MIB + 512 * KIB,
              "sbl": 512 * KIB}
BAD = {"userdata": {0, 3}, "recoveryfs": {0}, "boot": {1}}
PACKAGE = images("system", 700001, "boot", 600001, "modem", 500001)
OLD = images("modem", 1200001)  # stands in an armed store from the update before
# What the module holds before the first run of a case: an armed store of that package, or none.
MODULES = {"another update's store": OLD, "no store": None, "this update's store": PACKAGE}
SECONDS = 10  # longer than any run takes
LIBRARY = BIN_DIR.parent / "interpose.so"


class SweptModule(SimModule):
    """A module that is made anew for each case, with a server. Its file system stays, so that runs begin quickly."""

    block, page, package = 512 * KIB, 4 * KIB, PACKAGE
    allowed_files = {"tmp/tarvolin", "tmp/revid", "run/tarvolin-sim.pid", "tmp/tarvolin/fail_reason",
                     *(f"tmp/tarvolin/{name}" for name in expected_files(PACKAGE, b""))}

    def __init__(self, stack):
        super().__init__(PARTITIONS, BAD)
        stack.enter_context(self)
        for command in ("mount", "umount", "fuser", "ubidetach"):
            self.add_command(command, "exit 0")
        self.states = {kind: self._with_store(package) for kind, package in MODULES.items()}
        self.expected = expected_flash(PACKAGE, self)
        self._initial = self.states["another update's store"]
        inside = [str(NAMESPACE), str(self.folder), "sh", "-c", "echo; exec cat"]
        self.holder = stack.enter_context(subprocess.Popen(inside, stdin=subprocess.PIPE, stdout=subprocess.PIPE))
        self.holder.stdout.readline()  # it is inside
        self.server = stack.enter_context(servers.serve(PACKAGE.bytes()))

    def _with_store(self, package):
        """Flash after an update with that package, with stale bytes wherever that left none."""
        flash = expected_flash(package, self) if package else {}
        mixed = {}
        for name in self.partitions:
            pairs = zip(self.split(self.initial(name)), self.split(flash.get(name, self.initial(name))))
            mixed[name] = b"".join(new if new.strip(b"\xff") else stale for stale, new in pairs)
        return mixed

    def reset(self, kind="another update's store"):
        self._initial, self.bad = self.states[kind], {name: set(blocks) for name, blocks in BAD.items()}
        self.lay_flash()
        shutil.rmtree(self.run_dir, ignore_errors=True)

    def command(self, program):
        user = [] if os.geteuid() == 0 else ["--user", "--preserve-credentials"]
        return ["nsenter", f"--target={self.holder.pid}", *user, "--mount", "--root", "--wd", "env", *self.variables,
                f"TARVOLIN_SIM=/host{self.flash}", f"PATH=/host{self.folder}/bin:{os.environ['PATH']}",
                f"/host{BIN_DIR / program}"]

    def update(self, plan=""):
        """Runs the updater with this plan. Returns its exit status."""
        self.set_faults("" if plan.startswith("call") else plan.replace("; ", "\n"))
        (self.flash / "struck").unlink(missing_ok=True)
        self.variables = []
        if plan.startswith("call"):
            _, _, number, error = plan.split()
            self.variables = [f"LD_PRELOAD=/host{LIBRARY}", f"FAULT_CALL={number} {getattr(errno, error, 0)}",
                              f"FAULT_TRACE=/host{self.flash}/calls", "ASAN_OPTIONS=verify_asan_link_order=0"]
        status = self.run(self.server.url(), timeout=SECONDS).status
        for name, block in self.marked():
            self.bad.setdefault(name, set()).add(block)
        return status
