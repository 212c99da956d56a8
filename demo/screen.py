"""What the demo shows: headings, items and a picture of flash. Colours on a terminal only."""
import os
import re
import sys

TERMINAL = sys.stdout.isatty() and os.environ.get("TERM") != "dumb"
COLOURS = {"bold": "1", "red": "31", "green": "32", "yellow": "33", "cyan": "36", "dim": "2"}


def paint(colour, text):
    if not TERMINAL or "NO_COLOR" in os.environ:
        return text
    return f"\033[{COLOURS[colour]}m{text}\033[0m"


def heading(text):
    print("\n" + paint("bold", text), flush=True)


def item(name, text):
    print(f"  {paint('cyan', name.ljust(11))}{text}", flush=True)


def draw_blocks(name, states, width=64):
    colours = {"x": "red", "H": "yellow", "#": "green", ".": "dim", "~": "dim"}
    for at in range(0, len(states), width):
        row = re.sub(r"(.)\1*", lambda run: paint(colours[run[1]], run[0]), states[at : at + width])
        item(name if at == 0 else "", row)
