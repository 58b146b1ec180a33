# SPDX-License-Identifier: Apache-2.0
"""The page in a real browser, at the width of a phone and of a desk: what it shows is what the board measures.

LYN_SCREENSHOTS=DIR keeps what was seen. tools/page-pictures makes the pictures of the documents.
"""
import contextlib
import os
import pathlib
import re
import shutil

import pytest

import lyn

webdriver = pytest.importorskip("selenium.webdriver")
from selenium.common.exceptions import StaleElementReferenceException, TimeoutException  # noqa: E402
from selenium.webdriver.chrome.service import Service  # noqa: E402 (behind the look for selenium)
from selenium.webdriver.common.by import By  # noqa: E402
from selenium.webdriver.common.keys import Keys  # noqa: E402
from selenium.webdriver.support.ui import WebDriverWait  # noqa: E402

pytestmark = [pytest.mark.skipif(lyn.BUILD.name != "release", reason="the page is the same in every build"),
              pytest.mark.skipif(not shutil.which("chromedriver"), reason="no chromium-driver"),
              pytest.mark.xdist_group("browser")]

PHONE, DESK = (390, 844), (1280, 900)
QUIET = "[board]\nnoise_db = 0\n"
LTE_ONLY = QUIET + "[sys_info]\nnr5g_pci = -1\n"


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


def url_of(session):
    host, port = session.address
    return f"http://{host}:{port}/"


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

    def run(self, script, *arguments):
        return self.driver.execute_script(script, *arguments)

    def find(self, selector):
        return self.driver.find_elements(By.CSS_SELECTOR, selector)

    def press_on(self, name):
        """Reach an element by the keyboard, and press it."""
        for _ in range(20):
            if self.run("return document.activeElement.id") == name:
                break
            self.driver.switch_to.active_element.send_keys(Keys.TAB)
        assert self.run("return document.activeElement.id") == name
        self.driver.switch_to.active_element.send_keys(Keys.ENTER)

    def text(self, selector):
        return self.driver.find_element(By.CSS_SELECTOR, selector).text

    def texts(self, selector):
        return self.run("return [...document.querySelectorAll(%r)].map((e) => e.textContent)" % selector)

    def wait(self, holds, what, seconds=20):
        """An element that the page has made anew meanwhile is looked for again."""
        wait = WebDriverWait(self.driver, seconds, poll_frequency=0.1, ignored_exceptions=[StaleElementReferenceException])
        try:
            wait.until(lambda _: holds())
        except TimeoutException:
            pytest.fail(f"{what}; the page shows:\n{self.text('body')}")

    def wait_text(self, selector, text, seconds=20):
        self.wait(lambda: re.search(text, self.text(selector)), f"no {text!r} in {selector}", seconds)

    def gauge(self, radio, name):
        """What one gauge shows, and what a screen reader is told."""
        found = next(each for each in self.find(f"#cell-{radio} .gauge")
                     if each.find_element(By.CSS_SELECTOR, ".name").text == name)
        scale = found.find_element(By.CSS_SELECTOR, ".scale")
        return {"value": found.find_element(By.CSS_SELECTOR, ".number").text,
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
def page_of(watch, chromium, scenario=None, *options, env=None, size=PHONE, scheme="light"):
    with watch.session("--serve", "0", *options, scenario=scenario, env=env) as session:
        yield Page(chromium, url_of(session), size, scheme)


@pytest.mark.parametrize("size", [PHONE, DESK], ids=["phone", "desk"])
@pytest.mark.parametrize("scheme", ["light", "dark"])
def test_page_shows_what_the_board_measures(watch, chromium, size, scheme):
    with page_of(watch, chromium, QUIET, "--name", "mast-7", "--scan", "1h", size=size, scheme=scheme) as page:
        page.wait_text("#state", "^Live$")
        page.wait_text("#registration", "^LTE with NR 5G$")
        assert page.text("#board") == "mast-7"
        assert page.gauge("lte", "RSRP") == {"value": "−95", "best": "best −95", "told": "−95 dBm", "of": "LTE RSRP"}
        assert page.gauge("lte", "SINR")["value"] == "13.0"
        assert page.gauge("nr5g", "RSRP")["value"] == "−98" and page.gauge("nr5g", "SINR")["value"] == "15.0"
        assert page.text("#cell-lte .who") == "272-01 · B3 · channel 1300 · PCI 214 · cell 10607298"
        assert "n77/n78" in page.text("#cell-nr5g .who") and "RSRQ −11 dB" in page.text("#cell-lte .more")
        page.wait_text("#neighbours", "LTE 1300 301 −101 −14 272-01")
        page.wait_text("#neighbours-say", r"^Scanned: LTE \d+ s ago, NR 5G \d+ s ago$")
        assert page.run("return document.documentElement.scrollWidth <= innerWidth")
        assert page.run("return [...document.querySelectorAll('.gauge, .number, td')]"
                        ".every((e) => e.scrollWidth <= e.clientWidth)")
        page.keep(f"shows-{size[0]}-{scheme}")
        assert page.complaints() == []


@pytest.mark.parametrize("size", [PHONE, DESK], ids=["phone", "desk"])
def test_longest_numbers_fit(watch, chromium, size):
    signal = "rsrp = -140\nrsrq = -30\nsnr = -200\n"
    with page_of(watch, chromium, f"{QUIET}[lte]\n{signal}[nr5g]\n{signal}", size=size) as page:
        page.wait(lambda: page.gauge("lte", "SINR")["value"] == "−20.0", "the value")
        assert page.gauge("nr5g", "RSRP")["value"] == "−140"
        for value in page.find(".number"):
            assert value.size["width"] >= page.run("return arguments[0].scrollWidth", value)
        page.keep(f"longest-{size[0]}")


def test_page_asks_nobody_but_the_board(watch, chromium):
    with page_of(watch, chromium, QUIET) as page:
        page.wait_text("#state", "^Live$")
        origins = page.run("return performance.getEntriesByType('resource').map((e) => new URL(e.name).origin)")
        assert len(origins) >= 3 and sorted(set(origins)) == [page.run("return location.origin")]


def test_pages_may_run_nothing_that_is_not_the_boards(watch, chromium):
    with page_of(watch, chromium, QUIET) as page:
        page.wait_text("#state", "^Live$")
        page.run("const added = document.createElement('script'); added.textContent = 'window.strange = 1';"
                 "document.body.append(added)")
        assert page.run("return window.strange") is None
        assert "Content Security Policy" in "".join(entry["message"] for entry in page.complaints())


# What is not there


def test_radio_that_is_not_there_is_dashes(watch, chromium):
    with page_of(watch, chromium, LTE_ONLY) as page:
        page.wait_text("#state", "^Live$")
        page.wait_text("#registration", "^LTE$")
        page.wait_text("#cell-lte .who", "channel 1300")
        assert page.text("#cell-nr5g .who") == "No cell"
        assert page.gauge("lte", "RSRP")["value"] == "−95"
        assert page.gauge("nr5g", "RSRP") == {"value": "–", "best": "best –", "told": "not measured",
                                              "of": "NR 5G RSRP"}
        assert "NR 5G not measured" in page.run("return document.getElementById('plot-rsrp').ariaLabel")
        page.keep("lte-only")


def test_no_service_is_told(watch, chromium):
    with page_of(watch, chromium, env={"LYN_SIM_SCENARIO": str(lyn.ROOT / "scenarios/no_service.toml")}) as page:
        page.wait_text("#registration", "^No service$")
        page.wait_text("#state", "^Live$")
        told = {page.gauge(radio, name)["told"] for radio in ("lte", "nr5g") for name in ("RSRP", "SINR")}
        assert told == {"not measured"}
        page.keep("no-service")
        assert page.complaints() == []


def test_modem_that_goes_and_comes_is_told(watch, chromium):
    scenario = QUIET + "[[at]]\nms = 4000\nmodem = \"down\"\n[[at]]\nms = 8000\nmodem = \"up\"\n"
    with page_of(watch, chromium, scenario, "--every", "1h") as page:  # no reading at its interval tells it
        page.wait_text("#state", "^Modem gone")
        page.wait(lambda: page.gauge("lte", "RSRP")["value"] == "–", "no value")
        assert page.texts("#events li span")[0] == "The modem is gone"
        page.keep("modem-gone")
        page.wait_text("#state", "^Live$")
        page.wait(lambda: page.gauge("lte", "RSRP")["value"] == "−95", "the value again")


def test_modem_that_was_never_there_is_waited_for(watch, chromium):
    with page_of(watch, chromium, "[nas]\navailable = false\n") as page:
        page.wait_text("#state", "^Modem starts$")
        assert page.gauge("lte", "RSRP")["told"] == "not measured"


def test_board_that_goes_and_comes_is_found_again(watch, chromium):
    with watch.session("--serve", "0", "--name", "mast-7", scenario=QUIET) as session:
        page = Page(chromium, url_of(session))
        page.wait_text("#state", "^Live$")
        session.terminate()
        page.wait_text("#state", r"^No connection\n\d+ s old$")
        assert "old" in page.run("return document.body.className")
        assert page.gauge("lte", "RSRP")["value"] == "−95"
        page.keep("board-gone")
        port = str(session.address[1])
    with watch.session("--serve", port, "--name", "mast-7", scenario=QUIET + "[lte]\nrsrp = -99\n"):
        page.wait_text("#state", "^Live$", 40)
        page.wait(lambda: page.gauge("lte", "RSRP")["value"] == "−99", "the new value")
        assert page.gauge("lte", "RSRP")["best"] == "best −95"
        assert "old" not in page.run("return document.body.className")


def test_another_board_at_the_same_address_has_a_best_of_its_own(watch, chromium):
    with watch.session("--serve", "0", "--name", "mast-7", scenario=QUIET) as session:
        page = Page(chromium, url_of(session))
        page.wait(lambda: page.gauge("lte", "RSRP")["best"] == "best −95", "the value")
        session.terminate()
        port = str(session.address[1])
    with watch.session("--serve", port, "--name", "mast-8", scenario=QUIET + "[lte]\nrsrp = -99\n"):
        page.wait_text("#board", "^mast-8$", 40)
        page.wait(lambda: page.gauge("lte", "RSRP")["best"] == "best −99", "the best of the new one")


def test_stream_that_falls_silent_is_opened_again(watch, chromium):
    with page_of(watch, chromium, QUIET) as page:
        page.wait_text("#state", "^Live$")
        page.run("window.before = stream; heardAt = -1e9; look()")
        assert page.run("return stream !== before && before.readyState === EventSource.CLOSED")
        page.wait_text("#state", "^Live$")


def test_modem_that_does_not_answer_is_old(watch, chromium):
    scenario = QUIET + "[[fault]]\non = \"nas.79\"\nskip = 20\ndelay_ms = 60000\n"
    with page_of(watch, chromium, scenario, "--every", "200ms") as page:
        page.wait_text("#state", r"^No answer\n\d+ s old$", 40)
        assert page.gauge("lte", "RSRP")["value"] == "−95"
        page.keep("no-answer")


# The best, the plots, what happens


def test_best_so_far_stays_until_it_is_forgotten_by_keyboard(watch, chromium):
    scenario = QUIET + "[[at]]\nms = 1500\nlte = { rsrp = -80 }\n[[at]]\nms = 3000\nlte = { rsrp = -110 }\n"
    with page_of(watch, chromium, scenario, "--every", "200ms") as page:
        page.wait(lambda: page.gauge("lte", "RSRP")["value"] == "−110", "the last value")
        page.wait(lambda: page.gauge("lte", "RSRP")["best"] == "best −80", "the best")
        page.driver.refresh()  # as a phone does by itself
        page.wait(lambda: page.gauge("lte", "RSRP")["best"] == "best −80", "the best, also of before the page")
        page.press_on("forget")
        page.wait(lambda: page.gauge("lte", "RSRP")["best"] == "best −110", "the best since then")
        page.driver.refresh()
        page.wait(lambda: page.run("return measured.ltersrp.length") > 1, "the history")
        assert page.gauge("lte", "RSRP")["best"] == "best −110"


def test_plots_begin_with_what_was_measured_before_the_page_was_opened(watch, chromium):
    with watch.session("--serve", "0", "--every", "100ms", scenario=QUIET) as session:
        session.wait_journal(lambda row: row["t"] > 4)
        page = Page(chromium, url_of(session))
        page.wait(lambda: page.run("return plots.rsrp.data.datasets[0].data.length") >= 3, "no history")
        assert {point["y"] for point in page.run("return plots.rsrp.data.datasets[0].data")} == {-95}
        assert {point["y"] for point in page.run("return plots.sinr.data.datasets[1].data")} == {15}
        assert page.run("return document.getElementById('plot-rsrp').ariaLabel") == \
            "RSRP of the last ten minutes: LTE from −95 to −95 dBm, NR 5G from −98 to −98 dBm"
        assert page.run("const c = document.getElementById('plot-sinr'); return c.getContext('2d')"
                        ".getImageData(0, 0, c.width, c.height).data.some((byte) => byte !== 0)")


def test_line_has_a_gap_where_nothing_was_measured(watch, chromium):
    with page_of(watch, chromium, QUIET) as page:
        page.wait_text("#state", "^Live$")
        page.run("measured.x = []; remember('x', 1000, -90); remember('x', 1500, -91); remember('x', 2000, -92);"
                 "remember('x', 30000, -93)")
        assert [point["y"] for point in page.run("return measured.x")] == [-91, -92, None, -93]


def test_events_come_as_they_happen(watch, chromium):
    scenario = QUIET + "[[at]]\nms = 2500\nsys_info = { lte = \"limited\" }\n"
    with page_of(watch, chromium, scenario, "--scan", "1h") as page:
        page.wait(lambda: "Limited service" in page.texts("#events li span"), "no event")
        page.wait(lambda: "LTE scan: 1 neighbour" in page.texts("#events li span"), "no scan")
        page.wait_text("#registration", "Limited service")
        assert all(re.fullmatch(r"\d\d:\d\d:\d\d", text) for text in page.texts("#events li time"))


def test_colours_follow_the_reader_while_the_page_is_open(watch, chromium):
    with page_of(watch, chromium, QUIET) as page:
        page.wait_text("#state", "^Live$")
        seen = "return [getComputedStyle(document.body).backgroundColor, plots.rsrp.data.datasets[0].borderColor]"
        light = page.run(seen)
        page.set_scheme("dark")
        page.wait(lambda: not set(light) & set(page.run(seen)), "dark")
        assert page.complaints() == []


# For everybody


CONTRAST = """
const rgb = (text) => text.match(/[\\d.]+/g).slice(0, 3).map(Number);
const light = (text) => rgb(text).map((c) => c / 255)
  .map((c) => (c <= 0.03928 ? c / 12.92 : ((c + 0.055) / 1.055) ** 2.4))
  .reduce((sum, c, i) => sum + c * [0.2126, 0.7152, 0.0722][i], 0);
const back = (element) => {
  const colour = getComputedStyle(element).backgroundColor;
  return colour.endsWith(", 0)") ? back(element.parentElement) : colour;
};
const contrast = (e) => {
  const [a, b] = [light(getComputedStyle(e).color), light(back(e))].sort((x, y) => y - x);
  return (a + 0.05) / (b + 0.05);
};
const speaks = (e) => e.checkVisibility() && [...e.childNodes].some((n) => n.nodeType === 3 && n.data.trim());
document.getElementById("state").className = arguments[0];
document.body.classList.toggle("old", arguments[0] !== "live");
return [...document.querySelectorAll("body *")].filter(speaks).map((e) => [e.outerHTML.slice(0, 80), contrast(e)])
  .filter(([, ratio]) => arguments[1] === (ratio < 4.5));
"""


@pytest.mark.parametrize("scheme", ["light", "dark"])
def test_every_text_stands_out(watch, chromium, scheme):
    with page_of(watch, chromium, QUIET, "--scan", "1h", scheme=scheme) as page:
        page.wait_text("#state", "^Live$")
        for standing in ("live", "waits", "gone"):
            assert page.run(CONTRAST, standing, True) == []
            assert len(page.run(CONTRAST, standing, False)) > 30


def test_page_has_what_a_screen_reader_needs(watch, chromium):
    with page_of(watch, chromium, QUIET) as page:
        page.wait_text("#state", "^Live$")
        assert page.run("return document.documentElement.lang") == "en"
        assert page.run("return document.getElementById('state-text').getAttribute('role')") == "status"
        assert page.run("return document.querySelectorAll('[aria-live], [role=log], [role=alert]').length") == 0
        assert page.run("return document.querySelectorAll('h1').length") == 1
        unnamed = page.run("return [...document.querySelectorAll('canvas, [role=meter], button, section, [tabindex]')]"
                           ".filter((e) => !(e.ariaLabel || e.getAttribute('aria-labelledby') || e.textContent.trim()))"
                           ".length")
        assert unnamed == 0
