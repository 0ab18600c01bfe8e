"""Puts the kept results together: prints one table, and with --write renews it in docs/performance.md."""

import json
import sys

from harness import RESULTS, ROOT, Row, table

PAGE = ROOT / "docs" / "performance.md"
BEGIN, END = "<!-- results: begin -->", "<!-- results: end -->"


def markdown(rows: list[Row], surroundings: list[str]) -> str:
    lines = [*(f"- {line}" for line in surroundings), "", "| Question | Measured | Target | | Best rounds |"]
    lines.append("|---|---|---|---|---|")
    for row in rows:
        question, figure, target, verdict = row.cells()
        lines.append(f"| {question} | {figure} | {target.replace('<=', '≤')} | {verdict} | {row.detail} |")
    return "\n".join(lines)


def main() -> None:
    rows, surroundings = [], []
    for path in sorted(RESULTS.glob("*.json")):
        kept = json.loads(path.read_text())
        rows += [Row(**row) for row in kept["rows"]]
        surroundings = surroundings or kept["surroundings"]
    if not rows:
        sys.exit("there are no results yet")
    print(table(rows))
    if "--write" in sys.argv:
        before, rest = PAGE.read_text().split(BEGIN)
        after = rest.split(END)[1]
        PAGE.write_text(f"{before}{BEGIN}\n{markdown(rows, surroundings)}\n{END}{after}")
        print(f"wrote {PAGE.relative_to(ROOT)}")


if __name__ == "__main__":
    main()
