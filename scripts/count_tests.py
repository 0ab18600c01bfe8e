"""Counts the results that scripts/test left in a folder and prints "N passed, N failed, N skipped".

Every program left NAME.status with its exit status, and gtest.* and pytest also NAME.xml in the JUnit
form. A program that crashed, or that failed without a failed case in its report, is one failure more; a
replay.* is one test in itself. No test at all is a failure. Ends with status 1 if anything failed.
"""

import sys
import xml.etree.ElementTree as ET
from pathlib import Path


def count_report(path: Path) -> tuple[int, int, int]:
    passed = failed = skipped = 0
    for case in ET.parse(path).getroot().iter("testcase"):
        if case.find("failure") is not None or case.find("error") is not None:
            failed += 1
        elif case.find("skipped") is not None or case.get("status") == "notrun":
            skipped += 1
        else:
            passed += 1
    return passed, failed, skipped


def main(folder: Path) -> int:
    passed = failed = skipped = 0
    failures = []
    for status_file in sorted(folder.glob("*.status")):
        name = status_file.name.removesuffix(".status")
        status = int(status_file.read_text())
        if name.startswith("replay."):
            counts = (int(status == 0), int(status != 0), 0)
        else:
            try:
                counts = count_report(folder / f"{name}.xml")
            except (OSError, ET.ParseError):
                counts = (0, 0, 0)
                status = status or 1
            if status != 0 and counts[1] == 0:
                counts = (counts[0], 1, counts[2])
        if counts[1]:
            failures.append(f"{name}: {counts[1]} failed, exit status {status}")
        passed, failed, skipped = (a + b for a, b in zip((passed, failed, skipped), counts, strict=True))
    if passed + failed == 0:
        failures.append("no test ran")
        failed = 1
    for line in failures:
        print(line)
    print(f"{passed} passed, {failed} failed, {skipped} skipped")
    return int(failed > 0)


if __name__ == "__main__":
    sys.exit(main(Path(sys.argv[1])))
