#!/usr/bin/python3
# SPDX-FileCopyrightText: VOLTIS developers
# SPDX-License-Identifier: GPL-3.0-or-later
"""The technician's page, and the till among the examples, in a real browser.

    page_test.py [--build FOLDER] [unittest's own arguments]

The service, the driver and the emulated register are those of the folder, build/release unless named.
VOLTIS_PICTURES=yes writes the pictures of docs/technician.md. VOLTIS_AXE=FILE has axe-core look at every
page, where that file is axe.min.js.
"""

import os
import pathlib
import struct
import sys
import unittest

try:
    from browser import CHROMIUM, DRIVER, REBOUND, Browser, Keys
except ModuleNotFoundError as missing:
    if missing.name != "selenium":
        raise
    CHROMIUM = DRIVER = "python3-selenium"
from shop import LONGEST_TIMEOUT, SALE, TREE, Shop, WebServer

PAGE = TREE / "docs/technician.md"
PICTURES = TREE / "docs"
LARGEST_PICTURE = 100 * 1024
BUILD = TREE / "build/release"

browser = None  # one for all tests: it takes longer to start than most of them


def missing_program():
    return next((one for one in (CHROMIUM, DRIVER) if not os.access(one, os.X_OK)), None)


def setUpModule():
    global browser
    missing = missing_program()
    if missing and os.environ.get("CI"):
        raise RuntimeError(f"{missing} is not installed; scripts/test installs it")
    if missing:
        print(f"{missing} is not installed: skipped")  # for ctest
        raise unittest.SkipTest(missing)
    browser = Browser()


def tearDownModule():
    if browser:
        browser.close()


class PageTest(unittest.TestCase):
    """Each with a shop of its own; at its end the browser has complained of nothing that is not expected."""

    def open_shop(self, **more):
        self.shop = Shop(BUILD, **more)
        self.addCleanup(self.shop.close)
        browser.begin()
        self.expected_complaints = []

    def open_slow_shop(self):
        """Its driver does not give up a register that is late."""
        self.open_shop(cmd_timeout=LONGEST_TIMEOUT, retries=20)

    def slow_down(self):
        """The register, in the middle of the next receipt: at its beginning, who is late is given up."""
        self.shop.type("at data 2 late 60s")

    def complaints(self):
        return [one for one in browser.log() if not any(part in one for part in self.expected_complaints)]

    def tearDown(self):
        self.assertEqual(self.complaints(), [])

    def log_in(self):
        browser.log_in(self.shop.url, self.shop.token)

    def resolve_by_form(self, verdict, note):
        browser.find(f"input[name=decision][value={verdict}]").click()
        browser.find("input[name=note]").send_keys(note)
        browser.find("form.decide button").click()


# --- what the technician does --------------------------------------------------------------------


class Technician(PageTest):
    def setUp(self):
        self.open_shop()

    def test_a_wrong_token_is_refused_and_the_right_one_logs_in_until_the_logout(self):
        self.expected_complaints = ["401 (Unauthorized)"]
        browser.go(self.shop.url)
        self.assertEqual(browser.run("return location.pathname"), "/login")
        browser.find("#token").send_keys("vt_wrong")
        browser.find("form.login button").click()
        browser.until_it_shows("The token is unknown, or was revoked", selector="[role=alert]")
        browser.find("#token").send_keys(self.shop.token)
        browser.find("form.login button").click()
        browser.until_it_shows("anna", selector="header .who")
        self.assertEqual(browser.run("return document.cookie"), "")  # no script can read it
        browser.find("header form button").click()
        browser.until(lambda: browser.find("#token"), "the login")
        browser.go(self.shop.url)
        self.assertEqual(browser.run("return location.pathname"), "/login")

    def test_a_sale_by_the_interface_arrives_live(self):
        self.log_in()
        browser.until_it_shows("Live", selector="#live")
        browser.run("window.isStillThere = true")
        self.assertEqual(self.shop.hand_in("sale-1", SALE.format("Tea", "1.00"))[0], 200)
        browser.until_it_shows("sale-1", "Printed", "Ready", selector="main")
        browser.until_it_shows("default: Ready", selector="#news")  # for ears
        self.assertTrue(browser.run("return window.isStillThere"))
        self.assertTrue(all(browser.until_pictures_are_there()))

    def test_a_register_without_paper_is_told_with_its_remedy_until_there_is_paper(self):
        self.log_in()
        self.shop.type("paper out")
        self.assertEqual(self.shop.hand_in("sale-1", SALE.format("Tea", "1.00"))[0], 503)
        browser.until_it_shows("Out of paper", "Receipt paper end", "Put in paper", "Not printed")
        self.shop.type("paper in")
        self.assertEqual(self.shop.hand_in("sale-1", SALE.format("Tea", "1.00"))[0], 200)
        browser.until_it_shows("Ready", "Printed")
        self.assertNotIn("Out of paper", browser.text())

    def test_a_job_in_doubt_appears_live_and_is_decided_by_the_button(self):
        self.log_in()
        self.shop.type("power off at data 2")
        self.assertEqual(self.shop.hand_in("sale-1", SALE.format("Jam", "2.00"))[0], 500)
        browser.until_it_shows("To be decided", "sale-1", "In doubt", "1 job waits for your decision")
        browser.find("main details summary").click()
        browser.until_it_shows("May paper have moved?")
        self.shop.type("power on")
        self.resolve_by_form("not-printed", "The paper ends with receipt 0")
        browser.until(lambda: "To be decided" not in browser.text(), "the end of the doubt")
        job = self.shop.job("sale-1")
        self.assertEqual((job["verdict"], job["resolved"]["by"]), ("not-printed", "anna"))
        self.assertEqual(self.shop.hand_in("sale-1", SALE.format("Jam", "2.00"))[0], 200)
        self.assertEqual(self.shop.receipts(), 1)

    def test_what_is_being_typed_outlives_the_news(self):
        self.log_in()
        self.shop.type("power off at data 2")
        self.shop.hand_in("sale-1", SALE.format("Jam", "2.00"))
        browser.until_it_shows("To be decided")
        browser.find("input[name=note]").send_keys("The paper")
        self.shop.type("power on")
        self.shop.hand_in("sale-2", SALE.format("Tea", "1.00"))
        browser.until_it_shows("There is something new", selector="#live")
        self.assertEqual(browser.find("input[name=note]").get_property("value"), "The paper")
        self.assertNotIn("sale-2", browser.text())
        browser.find("input[name=note]").send_keys(Keys.BACKSPACE * len("The paper"))
        browser.until_it_shows("sale-2")

    def test_the_page_of_a_job_shows_its_receipt_and_its_conversation(self):
        self.shop.hand_in("sale-1", SALE.format("Tea", "1.00"))
        self.log_in()
        browser.find("main .receipts a:not(.receipt)").click()
        browser.until_it_shows("Job sale-1", "Printed", "till-1", "Conversation")
        widths = browser.until_pictures_are_there()
        self.assertEqual(len(widths), 2)
        self.assertTrue(all(widths))
        browser.find("a.trace").click()
        browser.until(lambda: browser.find("svg"), "the conversation")
        self.assertIn("REQUEST", browser.run("return document.documentElement.textContent").upper())

    def test_the_page_says_when_it_is_live_no_more(self):
        self.expected_complaints = ["ERR_"]
        self.log_in()
        browser.until_it_shows("Live", selector="#live")
        self.shop.service.kill()
        browser.until_it_shows("Not live", selector="#live")
        browser.until_it_shows("Not live", selector="#news")

    def test_the_policy_of_the_page_keeps_foreign_scripts_out_and_the_browser_says_so(self):
        self.expected_complaints = ["Content Security Policy"]
        self.log_in()
        browser.run("""const script = document.createElement('script');
            script.textContent = 'window.isForeign = true'; document.body.append(script);""")
        self.assertIsNone(browser.run("return window.isForeign"))
        self.assertTrue(any("Content Security Policy" in one for one in browser.log()))


class WithoutScript(PageTest):
    def setUp(self):
        self.open_shop()
        browser.script_execution(False)
        self.addCleanup(browser.script_execution, True)

    def test_everything_but_the_liveliness_works(self):
        self.log_in()
        self.assertEqual(browser.run("return document.getElementById('live').innerText"), "Reload to see what is new")
        self.shop.type("power off at data 2")
        self.shop.hand_in("sale-1", SALE.format("Jam", "2.00"))
        self.assertNotIn("sale-1", browser.text())
        browser.go(self.shop.url)
        browser.until_it_shows("sale-1", "In doubt")
        self.shop.type("power on")
        self.resolve_by_form("not-printed", "nothing there")
        browser.until(lambda: "To be decided" not in browser.text(), "the end of the doubt")
        self.assertEqual(self.shop.job("sale-1")["resolved"]["note"], "nothing there")
        browser.find("header form button").click()
        browser.until(lambda: browser.find("#token"), "the login")


class Queue(PageTest):
    """A receipt is being printed, by a register that takes its time, and others wait."""

    def setUp(self):
        self.open_slow_shop()
        self.slow_down()
        self.shop.hand_in_and_wait_until_it_prints("sale-1", SALE.format("Tea", "1.00"))
        self.shop.hand_in("sale-2", SALE.format("Milk", "1.29"), wait=0)
        self.shop.hand_in("sale-3", SALE.format("Bread", "2.00"), wait=0)

    def test_a_job_of_the_queue_is_withdrawn_by_its_button(self):
        self.log_in()
        browser.until_it_shows("Printing", "Waiting", "sale-2", "sale-3")
        self.assertEqual(self.shop.job("sale-3")["position"], 1)
        browser.find("[aria-label='Withdraw sale-2']").click()
        browser.until(lambda: not browser.all("[aria-label='Withdraw sale-2']"), "the withdrawal")
        self.assertEqual(self.shop.job("sale-2")["withdrawn_by"], "anna")
        self.assertEqual(self.shop.job("sale-3")["position"], 0)
        self.assertEqual(self.shop.hand_in("sale-2", SALE.format("Milk", "1.29"))[0], 410)


# --- for everybody -------------------------------------------------------------------------------


class Everybody(PageTest):
    """All kinds of pages, with all kinds of jobs."""

    @classmethod
    def setUpClass(cls):
        cls.shop = Shop(BUILD)
        cls.addClassCleanup(cls.shop.close)
        cls.shop.hand_in("sale-1", SALE.format("Tea", "1.00"))
        cls.shop.hand_in("a-name-that-is-too-long-for-the-line-of-the-register-and-for-many-a-page-too",
                         SALE.format("A name that is far too long", "1.00"))
        cls.shop.type("paper out after 3 lines")
        cls.shop.hand_in("sale-3", SALE.format("Tea", "1.00").replace("TENDER\n", "") + SALE.format("Jam", "2.00"))
        cls.shop.type("paper in")
        cls.shop.type("finish")
        cls.shop.type("power off at data 2")
        cls.shop.hand_in("sale-4", SALE.format("Jam", "2.00"))
        # the register is silent: this fails after a while, the next one waits meanwhile
        cls.shop.hand_in("sale-5", SALE.format("Jam", "2.00"))

    def setUp(self):
        browser.begin()
        self.expected_complaints = ["401 (Unauthorized)", "404 (Not Found)", "403 (Forbidden)", "422 (Unprocess"]

    def pages(self):
        """Goes to each of them, with its name."""
        browser.go(self.shop.url + "/login")
        yield "the login"
        browser.find("#token").send_keys("vt_wrong")
        browser.find("form.login button").click()
        browser.until(lambda: browser.find("[role=alert]"), "the refusal")
        yield "the login that was refused"
        self.log_in()
        yield "the overview"
        for number, name in enumerate(("printed", "with a mistake", "printed in part", "in doubt", "not printed"), 1):
            browser.go(f"{self.shop.url}/jobs/{number}")
            yield "a job " + name
        browser.go(f"{self.shop.url}/jobs/4")
        browser.run("document.querySelector('form.decide').noValidate = true;")
        browser.find("form.decide button").click()
        browser.until(lambda: browser.find("[role=alert]"), "the complaint")
        yield "a decision without a reason"
        browser.go(self.shop.url + "/jobs/99")
        yield "a job that is none"

    def test_no_page_is_wider_than_a_phone(self):
        for page in self.pages():
            for width in (360, 320):
                browser.show_as("light", width)
                with self.subTest(page=page, width=width):
                    self.assertEqual(browser.overflow(), [0, []])

    def test_texts_have_contrast_in_both_schemes(self):
        for page in self.pages():
            browser.run("for (const one of document.querySelectorAll('details')) one.open = true;")
            for scheme in ("light", "dark"):
                browser.show_as(scheme, 1000)
                texts = browser.contrasts()
                with self.subTest(page=page, scheme=scheme):
                    self.assertGreater(len(texts), 4)
                    self.assertEqual([one for one in texts if one["ratio"] < one["least"]], [])

    def test_tab_reaches_everything_in_order_and_shows_where_it_is(self):
        for page in self.pages():
            expected, reached = browser.tab_through()
            with self.subTest(page=page):
                self.assertEqual([one["order"] for one in reached], list(range(len(expected))), expected)
                self.assertEqual([expected[one["order"]] for one in reached
                                  if one["style"] == "none" or one["width"] < 2 or not one["isSeen"]], [])

    def test_a_decision_needs_no_mouse(self):
        browser.go(self.shop.url + "/login")
        browser.press(Keys.TAB, Keys.TAB, self.shop.token, Keys.ENTER)
        browser.until(lambda: browser.find("header .who"), "the overview")
        browser.press(Keys.TAB, Keys.ENTER)  # to the content
        self.assertEqual(browser.run("return document.activeElement.id"), "main")
        self.assertEqual(self.shop.job("sale-3")["resolved"], None)
        browser.go(f"{self.shop.url}/jobs/3")
        browser.find("main").send_keys("")
        browser.run("document.querySelector('form.decide').previousElementSibling?.focus();")
        while browser.run("return document.activeElement.name") != "decision":
            browser.press(Keys.TAB)
        browser.press(Keys.SPACE, Keys.ARROW_DOWN, Keys.ARROW_UP, Keys.TAB, "finished by hand", Keys.ENTER)
        browser.until_it_shows("finished by hand")
        self.assertEqual(self.shop.job("sale-3")["verdict"], "printed")

    def test_readers_of_screens_are_told_names_landmarks_and_headings(self):
        named = {"button", "link", "textbox", "radio", "image", "img", "group", "article", "DisclosureTriangle",
                 "region", "navigation"}
        for page in self.pages():
            tree = browser.tree()
            with self.subTest(page=page):
                roles = [role for role, _, _ in tree]
                self.assertEqual([one for one in tree if one[0] in named - {"article", "group"} and not one[1]], [])
                self.assertEqual((roles.count("banner"), roles.count("main")), (1, 1))
                levels = [properties["level"] for role, _, properties in tree if role == "heading"]
                self.assertEqual(levels[:1], [1])
                self.assertEqual(levels.count(1), 1)
                self.assertTrue(all(after <= before + 1 for before, after in zip(levels, levels[1:])), levels)
                self.assertEqual(browser.run("return document.documentElement.lang"), "en")
                self.assertRegex(browser.run("return document.title"), r"\w+.* - VOLTIS$")
                ids = browser.run("return [...document.querySelectorAll('[id]')].map((one) => one.id)")
                self.assertEqual(len(ids), len(set(ids)), ids)

    @unittest.skipUnless(os.environ.get("VOLTIS_AXE"), "VOLTIS_AXE names no axe.min.js")
    def test_axe_finds_nothing(self):
        for scheme in ("light", "dark"):
            for width in (1000, 360):
                browser.show_as(scheme, width)
                for page in self.pages():
                    found = browser.axe(os.environ["VOLTIS_AXE"])
                    print(f"axe: {page}, {scheme}, {width} px: {found['passes']} rules kept, "
                          f"{len(found['violations'])} broken, not sure of {found['incomplete']}")
                    with self.subTest(page=page, scheme=scheme, width=width):
                        self.assertEqual(found["violations"], [])


# --- pages of another origin ---------------------------------------------------------------------


class AnotherOrigin(PageTest):
    def setUp(self):
        self.web = WebServer()
        self.addCleanup(self.web.close)
        self.open_shop(origins=f"http://127.0.0.1:{self.web.port}")

    def open_till(self, host):
        browser.go(f"http://{host}:{self.web.port}/till.html")
        browser.find("summary").click()
        for name, value in (("service", self.shop.url), ("token", self.shop.till)):
            field = browser.find(f"#settings [name={name}]")
            field.clear()
            field.send_keys(value)
        browser.find("#settings button").click()

    def sell(self, name, price):
        browser.find("#sale [name=name]").send_keys(name)
        browser.find("#sale [name=price]").send_keys(price)
        browser.find("#sale button").click()

    def test_a_till_of_the_origin_that_is_named_sells(self):
        self.expected_complaints = ["422 (Unprocess", "favicon"]
        self.open_till("127.0.0.1")
        self.sell('Tea "Earl"', "4.50")
        browser.until_it_shows('Tea "Earl", 4.50: Printed, receipt 1.')
        self.sell("\u2192", "1")
        browser.until_it_shows("Not printed, a mistake of the till: line 1, column 23")
        self.assertEqual(self.shop.receipts(), 1)

    def test_what_it_had_stored_is_sold_once_when_the_page_is_opened_again(self):
        self.expected_complaints = ["favicon", "ERR_"]
        self.open_till("127.0.0.1")
        # as when the power of the till fails while its sale is on the way
        browser.run("window.fetch = () => { window.wasSent = localStorage.getItem('sales'); return new Promise(() => {}); };")
        self.sell("Tea", "1.00")
        browser.until_it_shows("Sending")
        self.assertIn("Tea", browser.run("return window.wasSent"))  # it was stored before
        key = browser.find("#sales li").get_dom_attribute("data-key")
        self.shop.hand_in(key, SALE.format("Tea", "1.00"))  # the service had it all the same
        browser.go(f"http://127.0.0.1:{self.web.port}/till.html")
        browser.until_it_shows("Tea, 1.00: Printed, receipt 1.")
        self.assertEqual(self.shop.receipts(), 1)

    def test_a_sale_that_was_not_printed_is_sent_again_under_its_key(self):
        self.expected_complaints = ["favicon", "503 (Service"]
        self.open_till("127.0.0.1")
        self.shop.type("paper out")
        self.sell("Tea", "1.00")
        browser.until_it_shows("Not printed: Receipt paper end", "Put in paper")
        self.shop.type("paper in")
        browser.find("#sales button").click()
        browser.until_it_shows("Tea, 1.00: Printed, receipt 1.")
        self.assertEqual(len(self.shop.ask("GET", "/v1/jobs")[1]["jobs"]), 1)

    def test_a_till_with_a_wrong_token_is_refused(self):
        self.expected_complaints = ["favicon", "401 (Unauthorized)"]
        self.shop.till = "vt_wrong"
        self.open_till("127.0.0.1")
        self.sell("Tea", "1.00")
        browser.until_it_shows("Refused: The token is unknown, or was revoked. Look at the settings")
        self.assertEqual(self.shop.ask("GET", "/v1/jobs")[1]["jobs"], [])

    def test_the_browser_keeps_a_page_of_an_origin_that_is_not_named_out(self):
        self.expected_complaints = ["favicon", "CORS policy", "ERR_FAILED", "403 (Forbidden)"]
        self.open_till("localhost")
        browser.run("""window.sent = 0; const real = window.fetch;
            window.fetch = (...all) => real(...all).finally(() => window.sent += 1);""")
        self.sell("Tea", "1.00")
        browser.until(lambda: browser.run("return window.sent") >= 1, "the first attempt")
        browser.until(lambda: any("CORS policy" in one for one in browser.log()), "the browser's refusal")
        self.assertNotIn("Printed", browser.text())
        self.assertEqual(self.shop.ask("GET", "/v1/jobs")[1]["jobs"], [])

    def test_a_name_that_somebody_else_has_led_to_this_machine_is_refused(self):
        # The service needs TLS at any other address than this one; without it the browser says what it omits.
        self.expected_complaints = ["421 (Misdirected", "Cross-Origin-Opener-Policy", "MIME type"]
        port = self.shop.address.rpartition(":")[2]
        browser.go(f"http://{REBOUND}:{port}/login")
        self.assertIn(f"{REBOUND}", browser.text("body"))
        self.assertIn("no name of this service", browser.text("body"))
        self.assertEqual(browser.all("#token"), [])
        status = browser.run("return fetch('/v1/registers').then((answer) => answer.status)")
        self.assertEqual(status, 421)


# --- the pictures of the documentation -----------------------------------------------------------


class Pictures(PageTest):
    """Of four states. With VOLTIS_PICTURES they are taken anew; the same ones in any case."""

    def take(self, name, height, width=760):
        browser.show_as("light", width)
        browser.until_pictures_are_there()
        # What differs from machine to machine.
        browser.run("""
            for (const time of document.querySelectorAll('time')) time.textContent = '22/11/2026, 15:20:31';
            const walker = document.createTreeWalker(document.body, NodeFilter.SHOW_TEXT);
            while (walker.nextNode())
                walker.currentNode.textContent = walker.currentNode.textContent.replace(arguments[0], '/dev/ttyS0');
            document.activeElement.blur();""", str(self.shop.folder / "register"))
        picture = browser.picture(height)
        self.assertEqual(picture[:8], b"\x89PNG\r\n\x1a\n")
        if os.environ.get("VOLTIS_PICTURES"):
            (PICTURES / name).write_bytes(picture)
        self.assertLess(len(picture), LARGEST_PICTURE)

    def test_printed_and_refused_and_in_doubt(self):
        self.open_shop()
        self.shop.hand_in("2026-4711", SALE.format("Apple tart", "5.00"))
        self.log_in()
        browser.until_it_shows("Ready", "Printed")
        self.take("page-printed.png", 970)
        self.shop.type("paper out")
        self.shop.hand_in("2026-4712", SALE.format("Birthday card", "3.20"))
        self.log_in()
        browser.until_it_shows("Out of paper")
        self.take("page-paper.png", 980)
        self.shop.type("paper in")
        self.shop.type("power off at data 2")
        self.shop.hand_in("2026-4712", SALE.format("Birthday card", "3.20"))
        self.log_in()
        browser.until_it_shows("To be decided")
        self.take("page-doubt.png", 1100)

    def test_queue(self):
        self.open_slow_shop()
        self.shop.hand_in("2026-4711", SALE.format("Apple tart", "5.00"))
        self.slow_down()
        self.shop.hand_in_and_wait_until_it_prints("2026-4712", SALE.format("Birthday card", "3.20"))
        self.shop.hand_in("2026-4713", SALE.format("Rye bread", "1.45"), wait=0)
        self.shop.hand_in("2026-4714", SALE.format("Milk", "1.29"), wait=0)
        self.log_in()
        browser.until_it_shows("Printing", "2026-4714")
        self.take("page-queue.png", 1090)


class PicturesOfThePage(unittest.TestCase):
    def test_the_page_shows_all_four_and_they_are_there(self):
        text = PAGE.read_text()
        for name in ("printed", "paper", "doubt", "queue"):
            with self.subTest(name=name):
                self.assertRegex(text, rf"!\[[^]]+\]\(page-{name}\.png\)")
                picture = (PICTURES / f"page-{name}.png").read_bytes()
                self.assertEqual(picture[:8], b"\x89PNG\r\n\x1a\n")
                width, height = struct.unpack(">II", picture[16:24])
                self.assertEqual(width, 760)
                self.assertGreater(height, 300)
                self.assertLess(len(picture), LARGEST_PICTURE)


if __name__ == "__main__":
    if "--build" in sys.argv:
        at = sys.argv.index("--build")
        BUILD = pathlib.Path(sys.argv[at + 1])
        del sys.argv[at:at + 2]
    unittest.main(verbosity=2)
