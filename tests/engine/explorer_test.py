"""The explorer of a report in a real browser, by clicks and keys, against the maps that it was made of.

Usage: explorer_test.py KVO_PARSE KVO_CORE SHARE_FOLDER
"""

import sys
import unittest

import numpy
from scipy import stats
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.keys import Keys

from engine_folder import AFFINE, EngineFolder, SHAPE, load, mm
from kvo_browser import set_screen, start_browser
from kvo_driver import wait_for

*PROGRAMS, SHARE = sys.argv[1:4]
MASK = load(f"{SHARE}/mask_gray_matter.nii.gz") > 0
PEAKS = {"near": (12, [(-38, 4, 2, 4.5), (-40, 8, 0, 3.5)]), "far": (25, [(60, -40, 30, "p")]),
         "low": (30, [(-30, 10, 4, -3.25)])}
PLACES = numpy.indices(SHAPE).reshape(3, -1).T @ AFFINE[:3, :3].T + AFFINE[:3, 3]


def blob(centre, height):
    """Falls off from a place in mm."""
    return height * numpy.exp(-((PLACES - centre) ** 2).sum(axis=1) / 200).reshape(SHAPE)


def number(text):
    return float(text.replace("\N{MINUS SIGN}", "-"))


class Explorer(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = EngineFolder(PROGRAMS, SHARE)
        wavy = 0.3 * numpy.sin(numpy.arange(MASK.size)).reshape(SHAPE)
        cls.z = numpy.where(MASK, blob((-38, 6, 0), 5) - blob((40, -60, 20), 4) + wavy, 0).astype(numpy.float32)
        cls.g = cls.z / 7
        save = cls.folder.save
        save("MyMean_z", cls.z)
        p = numpy.clip(stats.norm.sf(cls.z), 1e-9, 1)
        save("MyMean_p", p, no_effect=0.5)
        save("MyMean_n_p", numpy.clip(stats.norm.cdf(cls.z), 1e-9, 1), no_effect=0.5)
        for name, values in (("g", cls.g), ("ci_low", cls.g - 0.4), ("ci_high", cls.g + 0.4),
                             ("info", numpy.where(MASK, 0.25, 0))):
            save(f"MyMean_{name}", numpy.where(MASK, values, 0))
        cls.folder.preprocessed(["MyMean"])
        work = cls.folder.work
        (work / "kvo_table.txt").write_text("study\tn1\n" + "".join(f"{s}\t{n}\n" for s, (n, _) in PEAKS.items()))
        for study, (_, peaks) in PEAKS.items():
            lines = "".join(" ".join(map(str, peak)) + "\n" for peak in peaks)
            (work / f"{study}.peaks.txt").write_text(f"# space: MNI\n{lines}")
        cls.folder.must_run("threshold MyMean, p, 0.005, 1, 10")
        cls.base = "MyMean_z_p_0.00500_1.000_10"
        cls.browser = start_browser()
        set_screen(cls.browser, 1280, 900)

    @classmethod
    def tearDownClass(cls):
        cls.browser.quit()
        cls.folder.__exit__()

    def setUp(self):
        self.browser.get(f"file://{self.folder.work}/{self.base}.html")
        wait_for(lambda: self.evaluate("document.getElementById('explorer').dataset.ready"), "the explorer")

    def tearDown(self):
        self.assertEqual(self.browser.get_log("browser"), [])

    def evaluate(self, expression):
        return self.browser.execute_script("return " + expression)

    def find(self, selector):
        return self.browser.find_elements("css selector", "#explorer " + selector)

    def said(self, part):
        """What stands beside a name once the next frame has been drawn."""
        self.browser.execute_async_script("requestAnimationFrame(() => requestAnimationFrame(arguments[0]))")
        return self.find(f"[data-part='{part}']")[0].get_attribute("textContent")

    def position(self):
        return tuple(int(number(n)) for n in self.said("position").removesuffix(" mm").split(", "))

    def go(self, place):
        for axis, n in zip("xyz", place):
            self.browser.execute_script(
                "arguments[0].value = arguments[1]; arguments[0].dispatchEvent(new Event('change'))",
                self.find(f"[data-part='mm-{axis}']")[0], n)

    def test_rows_of_the_table_lead_to_what_they_say(self):
        rows = self.browser.find_elements("css selector", "tr[data-mm]")
        self.assertGreaterEqual(len(rows), 2)
        for row in rows:
            cells = [cell.text.split("\n") for cell in row.find_elements("css selector", "td")]
            row.find_element("css selector", "button").click()
            self.assertEqual(self.position(), tuple(int(number(cells[n][0])) for n in (2, 3, 4)))
            self.assertIn(cells[1][0], self.said("region"))
            self.assertEqual(self.said("z").split(" ")[0], cells[5][0])
            self.assertEqual(self.said("g"), f"{cells[6][0]} ({cells[6][1]})")
            self.assertEqual(self.said("p"), cells[7][0])

    def test_any_voxel_has_the_numbers_of_the_maps(self):
        random = numpy.random.default_rng(3)
        inside = numpy.argwhere(MASK)
        for voxel in inside[random.choice(len(inside), 12, replace=False)]:
            self.go(mm(voxel))
            self.assertEqual(self.position(), mm(voxel))
            z, g = (float(values[tuple(voxel)]) for values in (self.z, self.g))
            self.assertEqual(number(self.said("z").split(" ")[0]), float(f"{z:.2f}") + 0)
            self.assertEqual(number(self.said("g").split(" ")[0]), float(f"{g:.2f}") + 0)
            self.assertEqual(self.said("info"), "25 %")
        self.go((0, 0, 500))
        self.assertEqual([self.said(part) for part in ("z", "p", "g", "info")], ["outside of the mask"] * 4)

    def test_keys_and_clicks_move_the_crosshair(self):
        self.go((-38, 6, 0))
        canvases = self.find("canvas")
        for canvas, keys, moved in ((0, Keys.ARROW_RIGHT, (-38, 8, 0)), (1, Keys.ARROW_LEFT, (-40, 8, 0)),
                                    (2, Keys.ARROW_DOWN, (-40, 6, 0)), (2, Keys.PAGE_UP, (-40, 6, 2)),
                                    (0, Keys.SHIFT + Keys.PAGE_UP, (-30, 6, 2))):
            canvases[canvas].send_keys(keys)
            self.assertEqual(self.position(), moved)
        # The middle of a coronal slice and of the glass brain beside it, where nothing is behind.
        self.go((-38, 6, 0))
        for canvas in (1, 4):
            ActionChains(self.browser).move_to_element(canvases[canvas]).click().perform()
            x, y, _ = self.position()
            self.assertLessEqual(abs(x), 4)
            self.assertEqual(y, 6)
        # A click on what shines through the glass goes to where it is.
        self.go((-38, -60, 0))
        size, first = ([int(n) for n in self.evaluate(f"document.getElementById('explorer').dataset.{name}").split()]
                       for name in ("size", "first"))
        at = numpy.linalg.inv(AFFINE) @ (-38, 6, 0, 1)
        across, up = ((at[axis] - first[axis] + 0.5) / size[axis] - 0.5 for axis in (0, 2))
        ActionChains(self.browser).move_to_element_with_offset(
            canvases[4], round(across * canvases[4].size["width"]),
            round(-up * canvases[4].size["height"])).click().perform()
        self.assertLess(numpy.abs(numpy.subtract(self.position(), (-38, 6, 0))).max(), 9)

    def test_what_is_shown_follows_the_sliders(self):
        def coloured():
            self.said("position")
            return self.evaluate("""(() => {
                const canvas = document.querySelectorAll('#explorer canvas')[4], copy = canvas.cloneNode();
                const context = copy.getContext('2d', { willReadFrequently: true });
                context.drawImage(canvas, 0, 0);
                const data = context.getImageData(0, 0, copy.width, copy.height).data;
                let count = 0;
                for (let i = 0; i < data.length; i += 4) count += Math.abs(data[i] - data[i + 2]) > 60;
                return count; })()""")

        surviving = coloured()
        self.assertGreater(surviving, 100)
        self.find("[data-part='all']")[0].click()
        everything = coloured()
        self.assertGreater(everything, 2 * surviving)
        set_slider = ("arguments[0].value = arguments[1]; arguments[0].dispatchEvent(new Event('input'))")
        self.browser.execute_script(set_slider, self.find("[data-part='threshold']")[0], 300)
        self.assertEqual(self.said("threshold-text"), "3.00")
        self.assertLess(coloured(), surviving)
        self.browser.execute_script(set_slider, self.find("[data-part='opacity']")[0], 0)
        self.assertLess(coloured(), 100)

    def test_studies_near_the_crosshair(self):
        self.go((-38, 6, 2))
        self.said("near-count")
        rows = [[cell.text for cell in row.find_elements("css selector", "td")][:4]
                for row in self.find("[data-part='near'] tr")]
        self.assertEqual([row[:3] for row in rows],
                         [["near", "12", "peak at 2 mm, 1 more"], ["low", "30", "peak at 9 mm"],
                          ["far", "25", "no peak within 20 mm"]])
        # Hedges' g of a t value of one group.
        for row, t, n in ((rows[0], 4.5, 12), (rows[1], -3.25, 30)):
            self.assertAlmostEqual(number(row[3]), t / n ** 0.5 * (1 - 3 / (4 * (n - 1) - 1)), delta=0.02)
        self.assertIn("2 of the 3 studies", self.said("near-count"))
        self.go((60, -40, 30))
        self.said("near-count")
        self.assertEqual(self.find("[data-part='near'] tr")[0].text.split(), "far 25 peak at 0 mm not given".split())

    def test_the_overview_leads_to_the_report_and_replaces_no_other_page(self):
        page = self.folder.work / "index.html"
        self.browser.get(f"file://{page}")
        cards = self.browser.find_elements("css selector", ".cards li")
        self.assertEqual([card.find_element("css selector", "b").text for card in cards], ["MyMean"])
        self.assertGreater(cards[0].find_element("css selector", "img").get_property("naturalWidth"), 100)
        text = self.browser.find_element("tag name", "main").text
        for known in ("3, with 67 participants", "3, with 4 peaks in all", "far", "1 peak"):
            self.assertIn(known, text)
        cards[0].find_element("css selector", "a").click()
        self.assertEqual(self.browser.title, "MyMean")
        kept = page.read_text(encoding="utf-8")
        for own in ("<h1>mine</h1>", kept.replace("overview", "report")):
            page.write_text(own, encoding="utf-8")
            self.folder.must_run("Region = mask label, 30")
            self.assertEqual(page.read_text(encoding="utf-8"), own)
        page.write_text(kept, encoding="utf-8")
        (self.folder.work / "kvo_batch.txt").write_text("# a comment\nOurs = mean\n")
        self.folder.must_run("Region = mask label, 30")
        self.assertIn("<code>Ours = mean</code>", page.read_text(encoding="utf-8"))

    def test_without_scripts_the_report_stands(self):
        self.browser.execute_cdp_cmd("Emulation.setScriptExecutionDisabled", {"value": True})
        try:
            self.browser.refresh()
            shown = [element.is_displayed() for element in
                     self.browser.find_elements("css selector", "#explorer, h1, tr[data-mm]")]
            self.assertEqual(shown.count(False), 1)
            self.assertFalse(self.find("canvas")[0].is_displayed())
        finally:
            self.browser.execute_cdp_cmd("Emulation.setScriptExecutionDisabled", {"value": False})


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
