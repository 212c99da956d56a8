"""Peak memory: against curl's, on a 32-bit module, and from 8 MiB to 1 GiB of package."""
from lab.module import MIB
from lab.packages import Image, Package, noise
from lab.sim_module import SimModule
from road import visit
from lab.servers import Nginx
from table import Row, ratio
from weight import weigh

PARTITIONS = {"recoveryfs": 1056 * MIB}


def peak(size):
    """In KiB, of an update of that many bytes on simulated flash."""
    package = Package([Image("recoveryfs", noise(MIB) * (size // MIB))])
    with SimModule(PARTITIONS) as module, Nginx() as nginx:
        url = nginx.put("large.pkg", package.bytes())
        return weigh([*module.command(module.program), "--debug", "--url", url])["peak"]


def measure(bin_dir, arm_bin_dir):
    here = visit("x86", bin_dir, "memory", "curl_memory")
    on_arm = visit("arm", arm_bin_dir, "memory")["memory"]
    small, large = peak(8 * MIB), peak(1024 * MIB)
    return [ratio("Peak memory, x86-64", here["memory"]["peak"], here["curl_memory"]["peak"], "<= 1", "KiB", "curl"),
            ratio("Peak memory, 1 GiB of package", large, small, "<= 1.02", "KiB", "8 MiB of package"),
            ratio("Anonymous memory, 32-bit ARM", on_arm["anonymous"], 4 * 128 + 512, "<= 1", "KiB",
                  "four erase blocks and 512 KiB"),
            Row("Peak memory, 32-bit ARM", f"{on_arm['peak']:,} KiB")]
