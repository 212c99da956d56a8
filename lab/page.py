"""Pages with places that programs fill: their counts stand between two comments."""
import re


def fill(page, name, text):
    """Puts the text where the page, a path, has its place for this name."""
    begin, end = f"<!-- counts: {name} -->\n", "<!-- end -->"
    known, place = page.read_text(), re.escape(begin) + ".*?" + re.escape(end)
    assert re.search(place, known, re.S), f"{page} has no place for {name}"
    page.write_text(re.sub(place, lambda _: f"{begin}{text}\n{end}", known, flags=re.S))
