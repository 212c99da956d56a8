"""The bench's one table: a ratio or a count a row, with the bound that it should keep."""
from dataclasses import dataclass


@dataclass
class Row:
    what: str
    ours: str
    reference: str = ""  # what it is held against
    value: float = None  # the figure that the bound is for
    bound: str = ""  # "<= 1.05", ">= 4"

    def kept(self):
        if not self.bound:
            return True
        sign, limit = self.bound.split()
        return self.value <= float(limit) if sign == "<=" else self.value >= float(limit)

    def cells(self):
        verdict = "" if not self.bound else "kept" if self.kept() else "MISSED"
        value = "" if self.value is None else f"{self.value:.2f}".rstrip("0").rstrip(".")
        return [self.what, self.ours, self.reference, value, self.bound, verdict]


HEADINGS = ["What", "Ours", "Held against", "Figure", "Bound", ""]


def as_text(rows):
    lines = [HEADINGS] + [row.cells() for row in rows]
    widths = [max(len(line[i]) for line in lines) for i in range(len(HEADINGS))]
    lines.insert(1, ["-" * width for width in widths])
    return "\n".join("| " + " | ".join(cell.ljust(width) for cell, width in zip(line, widths)) + " |" for line in lines)


def ratio(what, ours, reference, bound, unit, reference_name):
    """A row for a quotient."""
    return Row(what, f"{ours:,.6g} {unit}", f"{reference:,.6g} {unit}, {reference_name}", ours / reference, bound)
