"""Draws the pictures of docs/gallery.md: one for each kind of chart, from the script beside it on that page.

    .venv/bin/python scripts/gallery.py [NAME...]

Every block of code on the page that a picture follows is run as it stands there; its last chart is saved as
docs/pictures/gallery/NAME.png, 640 x 360 pixels. So the page shows what its scripts draw.
"""

import os
import re
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
PAGE = ROOT / "docs" / "gallery.md"
SIZE = "640x360"
BLOCK = re.compile(r"```python\n(.*?)```\s*!\[[^\]]*\]\(([^)]+)\)", re.DOTALL)


def scripts() -> dict[Path, str]:
    """The page's scripts by the picture that each draws."""
    found = BLOCK.findall(PAGE.read_text("utf-8"))
    return {PAGE.parent / place: code for code, place in found}


def main() -> None:
    import kvalo

    wanted = set(sys.argv[1:])
    unknown = wanted - {path.stem for path in scripts()}
    if unknown:
        sys.exit(f"no picture {', '.join(sorted(unknown))}")
    for path, code in scripts().items():
        if wanted and path.stem not in wanted:
            continue
        kvalo.close("all")
        names: dict = {}
        exec(compile(code, path.stem, "exec"), names)
        path.parent.mkdir(parents=True, exist_ok=True)
        kvalo.save(os.path.relpath(path), names["chart"], SIZE)


if __name__ == "__main__":
    main()
