"""How much memory a command takes."""
import pathlib
import re
import subprocess
import time


def weigh(command, environment=None):
    """Peak memory in KiB: resident, and the part of it that no file backs."""
    most = {"VmHWM": 0, "RssAnon": 0}
    with subprocess.Popen(command, stdout=subprocess.DEVNULL, env=environment) as process:
        while process.poll() is None:
            text = pathlib.Path(f"/proc/{process.pid}/status").read_text()
            for name, size in re.findall(r"^(VmHWM|RssAnon):\s+(\d+)", text, re.M):
                most[name] = max(most[name], int(size))
            time.sleep(0.002)
    assert process.returncode == 0, command
    return {"peak": most["VmHWM"], "anonymous": most["RssAnon"]}
