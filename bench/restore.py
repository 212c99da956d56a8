"""What a restore costs, on the kernel's flash in a virtual machine."""
from statistics import median

from restore_guest import SIZE
from road import visit
from table import Row, ratio


def measure(bin_dir, arm_bin_dir):
    slow = visit("x86", bin_dir, "restore_slow")["restore_slow"]
    memory = visit("arm", arm_bin_dir, "restore_memory")["restore_memory"]
    name = f"{SIZE >> 20} MiB from store to target"
    return [ratio(f"{name}, with flash's own delays", median(run["wall"] for run in slow),
                  median(run["flash"] for run in slow), "<= 1.05", "s", "in calls on flash"),
            ratio("Restore, anonymous memory, 32-bit ARM", memory["anonymous"], 2 * 128 + 256, "<= 1", "KiB",
                  "two erase blocks and 256 KiB"),
            Row("Restore, peak memory, 32-bit ARM", f"{memory['peak']:,} KiB")]
