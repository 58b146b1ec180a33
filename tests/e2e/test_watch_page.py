# SPDX-License-Identifier: Apache-2.0
"""The page in a real browser, at the width of a phone and of a desk: what it shows is what the board measures.

LYN_SCREENSHOTS=DIR keeps what was seen; tools/page-pictures makes the documents' pictures with it.
"""
import contextlib
import os
import pathlib
import re
import shutil
import socket

import pytest

import lyn

webdriver = pytest.importorskip("selenium.webdriver")
from selenium.webdriver.chrome.service import Service  # noqa: E402 (behind the look for selenium)
from selenium.webdriver.common.by import By  # noqa: E402
from selenium.webdriver.common.keys import Keys  # noqa: E402
from selenium.webdriver.support.ui import WebDriverWait  # noqa: E402

pytestmark = [pytest.mark.skipif(lyn.BUILD.name != "release", reason="the page is the same in every build"),
              pytest.mark.skipif(not shutil.which("chromedriver"), reason="no chromium-driver"),
              pytest.mark.xdist_group("browser")]

PHONE, DESK = (390, 844), (1280, 900)
QUIET = "[board]\nnoise_db = 0\n"


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


@pytest.fixture(scope="module")
def chromium(tmp_path_factory):
    options = webdriver.ChromeOptions()
    for argument in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
                     f"--user-data-dir={tmp_path_factory.mktemp('chromium')}"):
        options.add_argument(argument)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    driver = webdriver.Chrome(options=options, service=Service(shutil.which("chromedriver")))
    yield driver
    driver.quit()


class Page:
    """One page of one board, as a reader sees it."""

    def __init__(self, driver, url, size=PHONE, scheme="light"):
        self.driver = driver
        driver.get_log("browser")
        driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
            "width": size[0], "height": size[1], "deviceScaleFactor": 1, "mobile": size == PHONE})
        self.set_scheme(scheme)
        driver.get(url)

    def set_scheme(self, scheme):
        self.driver.execute_cdp_cmd("Emulation.setEmulatedMedia",
                                    {"features": [{"name": "prefers-color-scheme", "value": scheme}]})

    def run(self, script):
        return self.driver.execute_script(script)

    def text(self, selector):
        return self.driver.find_element(By.CSS_SELECTOR, selector).text

    def texts(self, selector):
        return [element.text for element in self.driver.find_elements(By.CSS_SELECTOR, selector)]

    def wait(self, holds, what, seconds=20):
        WebDriverWait(self.driver, seconds, poll_frequency=0.1).until(
            lambda _: holds(), f"{what}; the page shows:\n{self.text('body')}")

    def wait_text(self, selector, text, seconds=20):
        self.wait(lambda: re.search(text, self.text(selector)), f"no {text!r} in {selector}", seconds)

    def gauge(self, radio, name):
        """What one gauge shows, and what a screen reader is told."""
        found = next(each for each in self.driver.find_elements(By.CSS_SELECTOR, f"#cell-{radio} .gauge")
                     if each.find_element(By.CSS_SELECTOR, ".name").text == name)
        scale = found.find_element(By.CSS_SELECTOR, ".scale")
        return {"value": found.find_element(By.CSS_SELECTOR, ".value").text,
                "best": found.find_element(By.CSS_SELECTOR, ".so-far").text,
                "told": scale.get_attribute("aria-valuetext"), "of": scale.get_attribute("aria-label")}

    def keep(self, name):
        if folder := os.environ.get("LYN_SCREENSHOTS"):
            pathlib.Path(folder).mkdir(parents=True, exist_ok=True)
            self.driver.save_screenshot(str(pathlib.Path(folder) / f"{name}.png"))

    def complaints(self):
        """What the browser has against the page; a connection that was lost is none."""
        return [entry for entry in self.driver.get_log("browser")
                if entry["level"] == "SEVERE" and "ERR_CONNECTION" not in entry["message"]
                and "ERR_INCOMPLETE_CHUNKED" not in entry["message"]]


@contextlib.contextmanager
def page_of(watch, chromium, scenario, *options, size=PHONE, scheme="light"):
    port = free_port()
    with watch.session("--serve", str(port), *options, scenario=scenario) as session:
        session.wait_error("serving")
        yield Page(chromium, f"http://127.0.0.1:{port}/", size, scheme)


@pytest.mark.parametrize("size", [PHONE, DESK], ids=["phone", "desk"])
@pytest.mark.parametrize("scheme", ["light", "dark"])
def test_page_shows_what_the_board_measures(watch, chromium, size, scheme):
    with page_of(watch, chromium, QUIET, "--name", "mast-7", "--scan", "1h", size=size, scheme=scheme) as page:
        page.wait_text("#state", "^Live$")
        assert page.text("#board") == "mast-7" and page.text("#registration") == "LTE with NR 5G"
        assert page.gauge("lte", "RSRP") == {"value": "−95 dBm", "best": "best −95", "told": "−95 dBm", "of": "LTE RSRP"}
        assert page.gauge("lte", "SINR")["value"] == "13.0 dB"
        assert page.gauge("nr5g", "RSRP")["value"] == "−98 dBm" and page.gauge("nr5g", "SINR")["value"] == "15.0 dB"
        assert page.text("#cell-lte .who") == "272-01 · B3 · channel 1300 · PCI 214 · cell 10607298"
        assert "n77/n78" in page.text("#cell-nr5g .who") and "RSRQ -11 dB" in page.text("#cell-lte .more")
        page.wait_text("#neighbours", "LTE 1300 301 -101 -14 272-01")
        assert page.run("return document.documentElement.scrollWidth <= innerWidth")
        page.keep(f"page-{size[0]}-{scheme}")
        assert page.complaints() == []


def test_page_asks_nobody_but_the_board(watch, chromium):
    with page_of(watch, chromium, QUIET) as page:
        page.wait_text("#state", "^Live$")
        origins = page.run("return [...new Set(performance.getEntriesByType('resource').map((e) => new URL(e.name).origin))]")
        assert origins == [page.run("return location.origin")]


def test_what_is_not_measured_is_a_dash(watch, chromium):
    scenario = QUIET + "[sys_info]\nnr5g_pci = -1\n[[fault]]\non = \"nas.79\"\ntimes = -1\nclear = [\"nr5g_sig_info_valid\"]\n"
    with page_of(watch, chromium, scenario) as page:
        page.wait_text("#state", "^Live$")
        assert page.text("#registration") == "LTE"
        assert page.gauge("nr5g", "RSRP") == {"value": "– dBm", "best": "best –", "told": "not measured", "of": "NR 5G RSRP"}


def test_best_so_far_stays_until_it_is_forgotten_by_keyboard(watch, chromium):
    scenario = QUIET + "[[at]]\nms = 1500\nlte = { rsrp = -80 }\n[[at]]\nms = 3000\nlte = { rsrp = -110 }\n"
    with page_of(watch, chromium, scenario, "--every", "200ms") as page:
        page.wait(lambda: page.gauge("lte", "RSRP")["value"] == "−110 dBm", "the last value")
        assert page.gauge("lte", "RSRP")["best"] == "best −80"
        for _ in range(20):
            if page.run("return document.activeElement.id") == "forget":
                break
            page.driver.switch_to.active_element.send_keys(Keys.TAB)
        page.driver.switch_to.active_element.send_keys(Keys.ENTER)
        assert page.gauge("lte", "RSRP")["best"] == "best −110"


def test_plots_begin_with_what_was_measured_before_the_page_was_opened(watch, chromium):
    port = free_port()
    with watch.session("--serve", str(port), "--every", "100ms", scenario=QUIET) as session:
        session.wait_error("serving")
        session.wait_journal(lambda row: row["t"] > 4)
        page = Page(chromium, f"http://127.0.0.1:{port}/")
        page.wait(lambda: page.run("return plots.rsrp.data.datasets[0].data.length") >= 3, "no history")
        points = page.run("return plots.rsrp.data.datasets[0].data")
        assert {point["y"] for point in points} == {-95}
        drawn = "const c = document.getElementById('plot-sinr'); return c.getContext('2d').getImageData(0, 0, c.width, c.height)" \
                ".data.some((byte) => byte !== 0)"
        assert page.run(drawn)


def test_events_come_as_they_happen(watch, chromium):
    with page_of(watch, chromium, QUIET + "[[at]]\nms = 2500\nsys_info = { lte = \"limited\" }\n") as page:
        page.wait(lambda: any("reg status limited" in line for line in page.texts("#events li")), "no event")
        page.wait_text("#registration", "Limited service")


def test_modem_that_goes_and_comes_is_told(watch, chromium):
    scenario = QUIET + "[[at]]\nms = 2000\nmodem = \"down\"\n[[at]]\nms = 6000\nmodem = \"up\"\n"
    with page_of(watch, chromium, scenario, "--every", "500ms") as page:
        page.wait_text("#state", "^Modem gone$")
        assert page.gauge("lte", "RSRP")["value"] == "– dBm"
        page.keep("page-modem-gone")
        page.wait_text("#state", "^Live$")
        assert page.gauge("lte", "RSRP")["value"] == "−95 dBm"


def test_board_that_goes_and_comes_is_found_again(watch, chromium):
    port = str(free_port())
    with watch.session("--serve", port, scenario=QUIET) as session:
        session.wait_error("serving")
        page = Page(chromium, f"http://127.0.0.1:{port}/")
        page.wait_text("#state", "^Live$")
        session.terminate()
        page.wait_text("#state", r"^No connection, \d+ s old$")
        assert "old" in page.run("return document.body.className")
        assert page.gauge("lte", "RSRP")["value"] == "−95 dBm"
        page.keep("page-board-gone")
    with watch.session("--serve", port, scenario=QUIET.replace("0", "0") + "[lte]\nrsrp = -88\n") as session:
        session.wait_error("serving")
        page.wait_text("#state", "^Live$", 40)
        page.wait(lambda: page.gauge("lte", "RSRP")["value"] == "−88 dBm", "the new board's value")


CONTRAST = """
const rgb = (text) => text.match(/[\\d.]+/g).slice(0, 3).map(Number);
const light = (text) => rgb(text).map((c) => c / 255).map((c) => (c <= 0.03928 ? c / 12.92 : ((c + 0.055) / 1.055) ** 2.4))
  .reduce((sum, c, i) => sum + c * [0.2126, 0.7152, 0.0722][i], 0);
const back = (element) => {
  const colour = getComputedStyle(element).backgroundColor;
  return colour.endsWith(", 0)") ? back(element.parentElement) : colour;
};
return [...document.querySelectorAll("body *")].filter((e) => e.offsetParent && [...e.childNodes].some((n) => n.nodeType === 3 && n.data.trim()))
  .map((e) => { const [a, b] = [light(getComputedStyle(e).color), light(back(e))].sort((x, y) => y - x); return [e.outerHTML.slice(0, 80), (a + 0.05) / (b + 0.05)]; })
  .filter(([, ratio]) => ratio < 4.5);
"""


@pytest.mark.parametrize("scheme", ["light", "dark"])
def test_every_text_stands_out(watch, chromium, scheme):
    with page_of(watch, chromium, QUIET, "--scan", "1h", scheme=scheme) as page:
        page.wait_text("#state", "^Live$")
        assert page.run(CONTRAST) == []


def test_page_has_what_a_screen_reader_needs(watch, chromium):
    with page_of(watch, chromium, QUIET) as page:
        page.wait_text("#state", "^Live$")
        assert page.run("return document.documentElement.lang") == "en"
        assert page.run("return document.getElementById('state').getAttribute('role')") == "status"
        assert page.run("return document.querySelectorAll('h1').length") == 1
        unnamed = page.run("return [...document.querySelectorAll('canvas, [role=meter], button, section, [tabindex]')]"
                           ".filter((e) => !(e.ariaLabel || e.getAttribute('aria-labelledby') || e.textContent.trim())).length")
        assert unnamed == 0
