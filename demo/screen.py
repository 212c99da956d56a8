"""What the demo shows: headings, a progress bar and a picture of flash. Colours and redrawing on a terminal only."""
import os
import re
import sys

TERMINAL = sys.stdout.isatty() and os.environ.get("TERM") != "dumb"
COLOURS = {"bold": "1", "red": "31", "green": "32", "yellow": "33", "cyan": "36", "dim": "2"}
MIB = 1024 * 1024
BAR = 40


def paint(colour, text):
    if not TERMINAL or "NO_COLOR" in os.environ:
        return text
    return f"\033[{COLOURS[colour]}m{text}\033[0m"


def heading(text):
    print("\n" + paint("bold", text), flush=True)


def item(name, text):
    print(f"  {paint('cyan', name.ljust(11))}{text}", flush=True)


class Progress:
    """One line per stage of the run: redrawn in place on a terminal, else printed anew at each quarter."""

    def __init__(self):
        self.stage = None
        self.shown = None

    def show(self, stage, saved, size):
        if stage != self.stage:
            self.end_line()
            self.stage, self.shown = stage, None
        text = self.bar(saved, size) if stage == "download" else "..."
        quarter = 4 * saved // size if size else 0
        if TERMINAL:
            print(f"\r\033[K  {paint('cyan', stage.ljust(11))}{text}", end="", flush=True)
        elif self.shown != quarter:
            item(stage, text)
        self.shown = quarter

    def end_line(self):
        if TERMINAL and self.stage is not None:
            print(flush=True)
        self.stage = None

    @staticmethod
    def bar(saved, size):
        if not size:
            return "waiting for the server"
        full = BAR * saved // size
        bar = paint("green", "#" * full) + "-" * (BAR - full)
        return f"[{bar}] {100 * saved // size:3d} %  {saved / MIB:4.1f} of {size / MIB:.1f} MiB"


def draw_blocks(name, states, width=64):
    colours = {"x": "red", "H": "yellow", "#": "green", ".": "dim", "~": "dim"}
    for at in range(0, len(states), width):
        row = re.sub(r"(.)\1*", lambda run: paint(colours[run[1]], run[0]), states[at : at + width])
        item(name if at == 0 else "", row)
