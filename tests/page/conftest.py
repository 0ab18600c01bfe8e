"""The page's files, a browser, and a server of made-up data for each test."""

import os
import shutil
import subprocess
import sys
from pathlib import Path

import pytest

HERE = Path(__file__).resolve().parent
REPO = HERE.parent.parent
sys.path.insert(0, str(HERE))
sys.path.insert(0, str(REPO / "python" / "kvalo_view" / "page"))

BUILD = Path(os.environ.get("KVALO_BUILD", REPO / "build")) / "page"
ASSETS = BUILD / "assets"
PACKAGES = BUILD / "packages"
BROWSER = {
    "executable_path": shutil.which("chromium"),
    "args": [
        "--no-sandbox",
        "--font-render-hinting=none",
        "--disable-lcd-text",
        "--force-color-profile=srgb",
    ],
}


@pytest.fixture(scope="session")
def assets():
    script = [sys.executable, REPO / "scripts" / "page_assets.py", "--out", ASSETS, "--packages", PACKAGES]
    result = subprocess.run(script, capture_output=True, text=True)
    if result.returncode == 3:
        pytest.skip(result.stderr)
    assert result.returncode == 0, result.stderr
    return ASSETS


@pytest.fixture(scope="session")
def browser():
    playwright = pytest.importorskip("playwright.sync_api")
    if not BROWSER["executable_path"]:
        pytest.skip("chromium is not installed")
    with playwright.sync_playwright() as started:
        chromium = started.chromium.launch(**BROWSER)
        yield chromium
        chromium.close()


@pytest.fixture
def serve(assets):
    """serve(charts, **state) starts a server of made-up data."""
    from stand_in import StandIn

    servers = []

    def start(charts, **state):
        servers.append(StandIn(assets, charts, **state))
        return servers[-1]

    yield start
    for server in servers:
        server.close()


@pytest.fixture
def show(browser):
    """show(server or path, **options of the browser's page) opens the page; errors in it fail the test."""
    from looker import Looker

    opened = []

    def start(source, **options):
        opened.append(Looker(browser, source, **options))
        return opened[-1]

    yield start
    for looker in opened:
        looker.close()
