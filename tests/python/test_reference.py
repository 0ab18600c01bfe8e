"""The reference: every function and method has its section, which opens with its signature as the module has it;
the examples print what the pages say."""

import inspect
import json
import re

import kvalo
import pytest
from conftest import ROOT, run_script
from test_stubs import public

REFERENCE = ROOT / "docs" / "reference"
PAGES = {page.name: page.read_text(encoding="utf-8") for page in sorted(REFERENCE.glob("*.md"))}
EXAMPLE = re.compile(r"^```python\n(.*?)^```\n\n^```text\n(.*?)^```$", re.MULTILINE | re.DOTALL)
GUIDE = {"models/guide.md": (ROOT / "docs" / "models" / "guide.md").read_text(encoding="utf-8")}
EXAMPLES = [
    (name, code, output) for name, text in (PAGES | GUIDE).items() for code, output in EXAMPLE.findall(text)
]
OWNERS = {
    "": kvalo,
    "series": kvalo.TimeSeries,
    "array": kvalo.Array,
    "container": kvalo.Container,
    "model": kvalo.Model,
}
PAGE_OF_TYPE = {
    "TimeSeries": "series.md",
    "Array": "array.md",
    "Mesh": "mesh.md",
    "Model": "models.md",
    "Result": "models.md",
}


def headings(page):
    return set(re.findall(r"^##? `?(\w+)`?$", PAGES[page], re.MULTILINE))


def entries_of_index():
    """What the table of the index names: (shown, page, heading)."""
    return re.findall(r"^\| \[`([\w.]+)`\]\((\w+\.md)#(\w+)\)", PAGES["README.md"], re.MULTILINE)


# Prints the functions that work. Each is tried in a process of its own: a request without a host ends it.
AVAILABLE = """
import os, kvalo
for name in dir(kvalo):
    if name.startswith("_") or isinstance(getattr(kvalo, name), type):
        continue
    if os.fork() == 0:
        try:
            getattr(kvalo, name)()
        except NotImplementedError:
            os._exit(77)
        except BaseException:
            pass
        os._exit(0)
    if os.waitstatus_to_exitcode(os.wait()[1]) != 77:
        print(name)
"""


def test_every_function_has_a_section():
    functions = set(run_script(AVAILABLE).stdout.split())
    assert "derivative" in functions
    assert functions == {shown for shown, _, _ in entries_of_index() if "." not in shown}


@pytest.mark.parametrize(("type_name", "page"), PAGE_OF_TYPE.items())
def test_every_method_has_a_section(type_name, page):
    of_type = getattr(kvalo, type_name)
    methods = {name for name in public(dir(of_type)) if callable(getattr(of_type, name))}
    assert methods <= headings(page)
    assert all(f"`{name}`" in PAGES[page] for name in public(dir(of_type)) - methods)


def opening(page, heading):
    """The first line of a section."""
    return re.search(rf"^##? `?{heading}`?\n\n(.*)$", PAGES[page], re.MULTILINE)[1]


def written(parameter):
    name = str(parameter.replace(default=parameter.empty))
    default = parameter.default
    if default is parameter.empty:
        return name
    return f"{name}=" + (
        "…" if default is ... else json.dumps(default) if default == str(default) else repr(default)
    )


def usage(shown):
    """How a call of what the index calls `function` or `series.method` is written, with its defaults."""
    owner, _, name = shown.rpartition(".")
    function = getattr(OWNERS[owner], name)
    parameters = list(inspect.signature(function).parameters.values())
    if name.startswith("__"):
        return f"{name.strip('_')}({', '.join([owner, *map(written, parameters[1:])])})"
    own = parameters[1:] if owner else parameters
    return f"{owner or 'kvalo'}.{name}({', '.join(map(written, own))})"


def test_sections_open_with_the_signature():
    missing = {
        shown: usage(shown)
        for shown, page, heading in entries_of_index()
        if f"`{usage(shown)}`" not in opening(page, heading)
    }
    assert missing == {}


def test_links_lead_somewhere():
    assert len(entries_of_index()) > 90
    for _, page, heading in entries_of_index():
        assert heading in headings(page), f"{page}#{heading}"
    for name, text in PAGES.items():
        for page, heading in re.findall(r"\]\(([\w./-]*)(?:#([\w-]+))?\)", text):
            target = (REFERENCE / page).resolve() if page else REFERENCE / name
            assert target.is_file(), f"{name}: {page}"
            if heading and target.parent == REFERENCE:
                titles = re.findall(r"^#+ (.*)$", PAGES[target.name], re.MULTILINE)
                slugs = [re.sub(r"[^\w -]", "", title).lower().replace(" ", "-") for title in titles]
                assert heading in slugs, f"{name}: {page}#{heading}"


def test_examples_are_found():
    assert sum(text.count("```python") for text in (PAGES | GUIDE).values()) == len(EXAMPLES) > 90


@pytest.mark.parametrize(
    ("page", "code", "output"), EXAMPLES, ids=[f"{p}-{i}" for i, (p, _, _) in enumerate(EXAMPLES)]
)
def test_example(page, code, output, tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    done = run_script("import kvalo\n" + code, KVALO_HOME=str(tmp_path / "home"))
    assert done.stdout == output, done.stderr
