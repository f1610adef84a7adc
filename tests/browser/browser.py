# SPDX-FileCopyrightText: VOLTIS developers
# SPDX-License-Identifier: GPL-3.0-or-later
"""Chromium, without a display, and questions to a page that it shows."""

import base64
import json
import time

from selenium import webdriver
from selenium.common.exceptions import NoSuchElementException, StaleElementReferenceException
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys

CHROMIUM = "/usr/bin/chromium"
DRIVER = "/usr/bin/chromedriver"
REBOUND = "rebound.example"  # a name of somebody else's, which leads to this machine
LONGEST = 60  # seconds until something is taken for never to happen

# Runs in the page. The contrast of a text and its ground, by WCAG 2.2: both may be see-through.
CONTRASTS = r"""
const parts = (colour) => {
  const [r, g, b, a = 1] = colour.match(/[\d.]+/g).map(Number);
  return [r, g, b, a];
};
const over = ([r, g, b, a], [R, G, B]) => [r * a + R * (1 - a), g * a + G * (1 - a), b * a + B * (1 - a)];
const luminance = (rgb) => {
  const [r, g, b] = rgb.map((v) => (v /= 255) <= 0.04045 ? v / 12.92 : ((v + 0.055) / 1.055) ** 2.4);
  return 0.2126 * r + 0.7152 * g + 0.0722 * b;
};
const groundOf = (element) => {
  const above = [];
  for (; element; element = element.parentElement) above.push(parts(getComputedStyle(element).backgroundColor));
  const dark = matchMedia('(prefers-color-scheme: dark)').matches;
  return above.reverse().reduce((ground, colour) => over(colour, ground), dark ? [18, 18, 18] : [255, 255, 255]);
};
const walker = document.createTreeWalker(document.body, NodeFilter.SHOW_TEXT);
const found = [];
while (walker.nextNode()) {
  const element = walker.currentNode.parentElement;
  const style = getComputedStyle(element);
  const text = walker.currentNode.textContent.trim();
  if (!text || !element.checkVisibility({ visibilityProperty: true }) || element.closest('.aside, .skip, noscript')) continue;
  const ground = groundOf(element);
  const [a, b] = [luminance(over(parts(style.color), ground)), luminance(ground)].sort((x, y) => y - x);
  const size = parseFloat(style.fontSize);
  const isLarge = size >= 24 || (size >= 18.66 && Number(style.fontWeight) >= 700);
  found.push({ text, ratio: (a + 0.05) / (b + 0.05), least: isLarge ? 3 : 4.5 });
}
return found;
"""

REACHABLE = "a[href], button, input:not([type=hidden]), summary, select, textarea"


class Browser:
    def __init__(self):
        options = webdriver.ChromeOptions()
        options.binary_location = CHROMIUM
        for option in ("--headless=new", "--no-sandbox", "--disable-dev-shm-usage", "--disable-gpu",
                       "--no-proxy-server", "--disable-background-networking", "--disable-component-update",
                       "--disable-extensions", "--no-first-run", "--lang=en-GB", "--hide-scrollbars",
                       f"--host-resolver-rules=MAP {REBOUND} 127.0.0.1"):
            options.add_argument(option)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        self.driver = webdriver.Chrome(service=Service(DRIVER), options=options)
        self.driver.set_page_load_timeout(LONGEST)
        self.driver.set_script_timeout(LONGEST)
        self.tell("Emulation.setTimezoneOverride", timezoneId="Europe/Riga")

    def close(self):
        self.driver.quit()

    def tell(self, command, **arguments):
        """By the protocol of its developers' tools."""
        return self.driver.execute_cdp_cmd(command, arguments)

    def begin(self):
        """As somebody who was never here."""
        self.driver.get("about:blank")
        self.tell("Storage.clearDataForOrigin", origin="*", storageTypes="all")
        self.tell("Network.clearBrowserCookies")
        self.script_execution(True)
        self.show_as("light", 1000, 900)
        self.log()

    def script_execution(self, is_on):
        self.tell("Emulation.setScriptExecutionDisabled", value=not is_on)

    def show_as(self, scheme, width, height=900):
        self.tell("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": scheme}])
        self.tell("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1,
                  mobile=width < 500)

    def log(self):
        """What it has complained about since it was asked last."""
        return [entry["message"] for entry in self.driver.get_log("browser") if entry["level"] != "DEBUG"]

    def go(self, url):
        self.driver.get(url)

    def find(self, selector):
        return self.driver.find_element(By.CSS_SELECTOR, selector)

    def all(self, selector):
        return self.driver.find_elements(By.CSS_SELECTOR, selector)

    def text(self, selector="main"):
        return self.find(selector).text

    def run(self, script, *arguments):
        return self.driver.execute_script(script, *arguments)

    def press(self, *keys):
        for key in keys:
            self.driver.switch_to.active_element.send_keys(key)

    def until(self, condition, what):
        end = time.monotonic() + LONGEST
        while time.monotonic() < end:
            try:
                if value := condition():
                    return value
            except (NoSuchElementException, StaleElementReferenceException):
                pass  # the page has just been changed
            time.sleep(0.05)
        raise AssertionError(f"it does not come: {what}; there is: {self.text('body')}")

    def until_it_shows(self, *texts, selector="main"):
        for text in texts:
            self.until(lambda text=text: text in self.text(selector), text)

    def until_pictures_are_there(self):
        """All of them, also below the part of the page that is seen."""
        self.run("for (const one of document.images) one.loading = 'eager';")
        self.until(lambda: self.run("return [...document.images].every((one) => one.complete);"), "pictures")
        return self.run("return [...document.images].map((one) => one.naturalWidth);")

    def log_in(self, url, token):
        self.go(url + "/login")
        self.find("#token").send_keys(token)
        self.find("form.login button").click()
        self.until(lambda: self.find("header .who"), "the overview")

    def picture(self, height=None):
        size = self.tell("Page.getLayoutMetrics")["cssContentSize"]
        clip = {"x": 0, "y": 0, "width": size["width"], "height": height or size["height"], "scale": 1}
        taken = self.tell("Page.captureScreenshot", clip=clip, captureBeyondViewport=True)
        return base64.b64decode(taken["data"])

    # --- for those who do not see it, or use no mouse -------------------------------------------

    def contrasts(self):
        return self.run(CONTRASTS)

    def overflow(self):
        """How much wider the page is than what is seen of it, and what sticks out."""
        return self.run("""
            const width = document.documentElement.clientWidth;
            const wide = [...document.querySelectorAll('body *')].filter((one) =>
                one.getBoundingClientRect().right > width + 0.5 && !one.closest('.aside'));
            return [document.documentElement.scrollWidth - width, wide.map((one) => one.outerHTML.slice(0, 80))];""")

    def tree(self):
        """Role and name of what the accessibility tree has, in its order."""
        nodes = self.tell("Accessibility.getFullAXTree")["nodes"]
        return [(node["role"]["value"], node.get("name", {}).get("value", ""),
                 {one["name"]: one["value"].get("value") for one in node.get("properties", [])})
                for node in nodes if not node.get("ignored")]

    def tab_through(self):
        """The selector's elements in the order in which Tab reaches them, each with its focus ring."""
        self.run("document.activeElement.blur(); window.scrollTo(0, 0);")
        expected = self.run("""
            const radios = new Set();
            return [...document.querySelectorAll(arguments[0])].filter((one) => {
                if (!one.checkVisibility() || one.disabled) return false;
                if (one.type !== 'radio') return true;
                const group = one.form.action + one.name;   // Tab reaches a group, arrows its members
                return !radios.has(group) && radios.add(group);
            }).map((one, at) => (one.dataset.order = at, one.outerHTML.slice(0, 120)));""", REACHABLE)
        reached = []
        for _ in range(len(expected) + 1):
            self.press(Keys.TAB)
            reached.append(self.run("""
                const one = document.activeElement, style = getComputedStyle(one), box = one.getBoundingClientRect();
                return {order: Number(one.dataset.order ?? -1), width: parseFloat(style.outlineWidth),
                    style: style.outlineStyle, isSeen: box.bottom > 0 && box.top < innerHeight && box.left >= 0};"""))
            if reached[-1]["order"] == -1:
                reached.pop()
                break
        return expected, reached

    def axe(self, file):
        """What axe-core finds: id, impact and the first places of each rule that is broken."""
        with open(file, encoding="utf-8") as script:
            # by the developers' tools, which no policy of the page keeps out
            self.tell("Runtime.evaluate", expression=script.read())
        answer = self.tell("Runtime.evaluate", awaitPromise=True, returnByValue=True, expression="""
            axe.run().then((found) => JSON.stringify({passes: found.passes.length,
                incomplete: found.incomplete.map((one) => [one.id, one.impact, one.nodes.length]),
                violations: found.violations.map((one) =>
                    [one.id, one.impact, one.nodes.slice(0, 3).map((node) => node.html.slice(0, 120))])}))""")
        return json.loads(answer["result"]["value"])
