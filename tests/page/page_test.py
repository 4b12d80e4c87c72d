#!/usr/bin/env python3
"""Edits clips in a real browser, by pointer and keys, and judges the files that come of it.

    page_test.py PROGRAM

Chromium, without a window (packages chromium, chromium-driver, python3-selenium). With CLIPWORKS_SERVICES=long in the environment
all of it, and pictures of the page in the folder PICTURES. CTest sets that, NPM_PACKAGES and PYTHONPATH.
"""

import json
import math
import os
import re
import statistics
import tempfile
import time
import unittest
from pathlib import Path

from selenium import webdriver
from selenium.webdriver import ActionChains, Keys
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By

from npm_packages import package
from serving import (LEVEL_STEP, PATIENCE, Serving, facts_of, levels_in, make_bursts, make_clip, make_scene, numbers_in,
                     program_named, to_palette)

PROGRAM = program_named()
SOUND, SPOKEN = 440, 3000  # Hz: the clips' tone, and the microphone's
PICTURES = Path(os.environ.get("PICTURES", tempfile.gettempdir()))
LOOKS = {"": (1360, "light"), "-dark": (1360, "dark"), "-narrow": (500, "light"), "-narrow-dark": (500, "dark")}
RULES = ["wcag2a", "wcag2aa", "wcag21a", "wcag21aa", "best-practice"]
READY = "return [...document.querySelectorAll('.strip img, .shot img')].every((image) => image.naturalWidth)"
FAULTS = """const [rules, done] = arguments;
    const page = document.documentElement;
    axe.run({ runOnly: rules, resultTypes: ["violations"] }).then(({ violations }) => {
        const wide = page.scrollWidth > page.clientWidth ? ["wider than the window"] : [];
        const told = ({ id, nodes }) => nodes.map((node) => `${id}: ${node.html} ${node.failureSummary}`);
        done([...wide, ...violations.flatMap(told)]);
    }, (error) => done([String(error)]));"""
# Notes of all that the microphone gives: the moment of the clip that is on screen, how loud it is, and when this is told.
LISTEN = """const given = navigator.mediaDevices.getUserMedia.bind(navigator.mediaDevices);
    window.heard = [];
    async function listen(track) {
        for await (const part of new MediaStreamTrackProcessor({ track }).readable) {
            const samples = new Float32Array(part.numberOfFrames);
            part.copyTo(samples, { planeIndex: 0, format: "f32-planar" });
            const late = performance.now() / 1e3 - part.timestamp / 1e6;
            heard.push([document.querySelector(".shown video").currentTime, Math.max(...samples), late]);
            part.close();
        }
    }
    navigator.mediaDevices.getUserMedia = async (wanted) => {
        const stream = await given(wanted);
        listen(stream.getAudioTracks()[0]);
        return stream;
    };"""
long = unittest.skipUnless(os.environ.get("CLIPWORKS_SERVICES") == "long", "in the long form")


def started_browser(spoken):
    options = webdriver.ChromeOptions()
    for word in ["--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--mute-audio",
                 "--use-fake-device-for-media-stream", "--use-fake-ui-for-media-stream",
                 f"--use-file-for-fake-audio-capture={spoken}"]:
        options.add_argument(word)
    options.binary_location = "/usr/bin/chromium"
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    return webdriver.Chrome(options=options, service=Service("/usr/bin/chromedriver"))


class PageTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.directory = tempfile.TemporaryDirectory()
        cls.folder = Path(cls.directory.name, "clips")
        cls.folder.mkdir()
        make_clip(cls.folder / "bars.mp4")
        make_clip(cls.folder / "hevc.mp4", 60, 30, "-c:v", "libx265", "-x265-params", "log-level=none", "-pix_fmt", "yuv420p10le")
        (cls.folder / "broken.mp4").write_bytes(b"nothing" * 50)
        cls.serving = Serving(PROGRAM, cls.folder)
        cls.browser = started_browser(make_bursts(Path(cls.directory.name, "spoken.wav"), SPOKEN))
        cls.look(cls)
        cls.browser.get(cls.serving.address)

    @classmethod
    def tearDownClass(cls):
        cls.browser.execute_script("console.info('the end')")
        log = [entry["message"] for entry in cls.browser.get_log("browser")]
        cls.browser.quit()
        code, left = cls.serving.stop()
        cls.directory.cleanup()
        # Of all that the page, the browser and its policies said in all tests, this is the only word.
        assert (code, left, len(log), "the end" in log[-1]) == (0, [], 1, True), (code, left, log)

    # What a person does and sees.

    def all(self, selector):
        return self.browser.find_elements(By.CSS_SELECTOR, selector)

    def one(self, selector, text=None):
        """The first element that is shown, and says `text`; waits for it."""
        return self.until(lambda: next((e for e in self.all(selector) if e.is_displayed() and (text is None or text in (
            e.text + (e.get_attribute("aria-label") or "")))), None), f"{selector} {text or ''}")

    def until(self, condition, what):
        deadline = time.monotonic() + PATIENCE
        while time.monotonic() < deadline:
            try:
                if found := condition():
                    return found
            except Exception as error:  # an element that was replaced meanwhile
                what = f"{what} ({error.__class__.__name__})"
            time.sleep(0.03)
        picture = PICTURES / "failed.png"
        self.browser.save_screenshot(str(picture))
        raise AssertionError(f"waited in vain for {what}; see {picture}")

    def click(self, text, selector="button"):
        self.one(selector, text).click()

    def press(self, *keys):
        ActionChains(self.browser).send_keys(*keys).perform()

    def drag(self, element, dx, dy=0):
        ActionChains(self.browser).click_and_hold(element).move_by_offset(round(dx), round(dy)).release().perform()

    def open(self, name, *steps):
        self.browser.get(f"{self.serving.origin}/#{name}")
        self.browser.execute_script("sessionStorage.clear()")
        if steps:
            keep = """const clip = (await (await fetch("/api/clips")).json()).clips.find((clip) => clip.name === arguments[0]);
                sessionStorage.setItem(`steps ${clip.name} ${clip.changed}`, JSON.stringify(arguments[1].map((step) => ({step, off: false}))))"""
            self.browser.execute_script(keep, name, steps)
        self.browser.refresh()
        self.until(lambda: self.length() > 0, "the clip's length")
        self.until(lambda: not self.all(".shown > img:not([hidden])"), "the video")
        if not steps:
            self.until(lambda: self.shown() == 0, "the first picture")

    def length(self):
        return float(self.one(".head").get_attribute("aria-valuemax"))

    def shown(self):
        """The number of the picture that is on screen, read off the screen."""
        path = self.folder / "shown.png"
        path.write_bytes(self.all(".shown")[0].screenshot_as_png)
        try:
            return numbers_in(path)[0]
        finally:
            path.unlink()

    def scrub(self, share):
        """Presses on the strip, at a share of its width."""
        body = self.one(".timeline .body")
        offset = round((share - 0.5) * body.size["width"])
        ActionChains(self.browser).move_to_element_with_offset(body, offset, 10).click().perform()

    def steps(self):
        return [e.text for e in self.all(".steps .name")]

    def kept_steps(self):
        """What the page remembers of them."""
        return [item["step"] for item in json.loads(self.browser.execute_script("return Object.values(sessionStorage)[0]"))]

    def made(self):
        """Has the clip made, and returns the file."""
        count = len(self.all(".results .done"))
        self.until(lambda: self.one("button.primary", "Make").is_enabled() and not self.all(".plan[aria-busy]"), "a plan")
        self.click("Make the clip")
        self.until(lambda: len(self.all(".results .done")) > count, "the result")
        return self.folder / self.one(".results .done strong").text

    # What must come of it.

    def test_the_list(self):
        self.browser.get(self.serving.origin + "/")
        self.one(".clips .soft", "640 × 360 · H.264")
        self.one(".clips .soft", "HEVC 10 bit")
        self.one(".broken", "broken.mp4")
        self.one("input[type=search]").send_keys("hev")
        self.assertEqual([e.text for e in self.all(".clips strong") if e.is_displayed()], ["hevc.mp4"])
        wide = "return arguments[0].naturalWidth"
        self.until(lambda: self.browser.execute_script(wide, self.one(".shot img")) > 200, "its picture")

    def test_scrubbing_is_exact(self):
        self.open("bars.mp4")
        for share, picture in [(0.505, 45), (0.105, 9), (0.905, 81)]:
            self.scrub(share)
            number = int(re.search(r"Picture (\d+)", self.one(".time").text)[1])
            self.assertAlmostEqual(number, picture, delta=1)
            self.until(lambda: self.shown() == number, f"picture {number} on screen")
        for keys, moved in [((Keys.ARROW_RIGHT,), 1), ((Keys.ARROW_LEFT,), -1), ((Keys.ARROW_LEFT,) * 2, -2), ((Keys.HOME,), None)]:
            number = 0 if moved is None else number + moved
            self.press(*keys)
            self.until(lambda: self.shown() == number, f"picture {number} after {keys}")
        self.press(" ")
        self.one("button", "Pause")
        self.until(lambda: self.shown() > 5, "playing")
        self.until(lambda: self.one(".play").get_attribute("aria-label") == "Play" and self.shown() == 89, "the end")

    @long
    def test_drafts_show_the_right_pictures(self):
        make_clip(self.folder / "groups.mp4", 600, 30, "-c:v", "libx264", "-pix_fmt", "yuv420p", "-g", "600", "-sc_threshold", "0")
        self.open("groups.mp4")
        # The video that they stand in for never gets there.
        self.browser.execute_script("Object.defineProperty(document.querySelector('.shown video'), 'currentTime', { set() {}, get: () => 0 })")
        for share in [0.2, 0.9, 0.51, 0.49]:  # in two pieces
            self.scrub(share)
            number = int(re.search(r"Picture (\d+)", self.one(".time").text)[1])
            self.assertAlmostEqual(number, 600 * share, delta=3)
            self.until(lambda: self.shown() == number or self.press(Keys.ARROW_LEFT, Keys.ARROW_RIGHT), f"picture {number} on screen")

    def test_a_chain_by_hand(self):
        self.open("bars.mp4")
        body = self.one(".timeline .body")
        width, length = body.size["width"], self.length()
        self.click("Trim", ".tool")
        self.drag(self.one(".handle.start"), width * 1 / length)
        self.drag(self.one(".handle.end"), -width * (length - 2.5) / length)
        self.click("Keep this part")
        self.assertEqual(self.steps(), ["Keep 0:01.00 – 0:02.50"])
        self.until(lambda: self.shown() == 30, "the first picture that is kept")

        self.click("Crop", ".tool")
        self.click("16:9", ".chips button")
        frame = self.one(".frame").size["width"]
        for grip, dx in [(".grip.x1.y1", -frame / 2), (".crop", frame / 4)]:
            self.drag(self.one(grip), dx, 0)
        numbers = [int(e.get_attribute("value")) for e in self.all(".form input[type=number]")]
        self.assertAlmostEqual(numbers[0], 160, delta=3)
        self.assertAlmostEqual(numbers[2], 320, delta=3)
        self.assertAlmostEqual(numbers[3], numbers[2] * 9 / 16, delta=1)
        for field, value in zip(self.all(".form input[type=number]"), [0, 0, 640, 180]):
            field.send_keys(Keys.CONTROL, "a")
            field.send_keys(str(value), Keys.TAB)
        self.click("Apply")

        self.click("Speed", ".tool")
        self.drag(self.one(".handle.end"), -width / 3)
        self.click("½×", ".chips button")
        self.click("Apply")
        self.assertEqual(self.steps()[1:], ["Crop to 640 × 180", "0.5× from 0:00.00 to 0:01.00"])
        self.assertAlmostEqual(self.length(), 2.5, delta=0.001)
        self.one(".plan .lead", "2.5 s, 640 × 180 pixels")
        file = self.made()
        w, h, seconds = facts_of(file)
        self.assertEqual((w, h), (640, 180))
        self.assertAlmostEqual(seconds, 2.5, delta=0.03)
        self.assertEqual(numbers_in(file), list(range(30, 75)))

    @long
    def test_steps_are_switched_moved_and_undone(self):
        self.open("bars.mp4")
        for tool, button in [("Rotate", "Right"), ("Loop", "Apply"), ("Reverse", None)]:
            self.click(tool, ".tool")
            if button:
                self.click(button, ".form button")
        three = ["Turn right", "Play 2 times", "Play backwards"]
        self.until(lambda: self.steps() == three, "three steps")
        whole = self.length()
        self.all(".steps .switch")[1].click()
        self.assertAlmostEqual(self.length(), whole / 2, delta=0.001)
        self.click("Move down: Turn right")
        self.assertEqual(self.steps(), [three[1], three[0], three[2]])
        self.click("Remove: Turn right")
        self.assertEqual(self.steps(), [three[1], three[2]])
        for _ in range(2):
            ActionChains(self.browser).key_down(Keys.CONTROL).send_keys("z").key_up(Keys.CONTROL).perform()
        self.assertEqual(self.steps(), three)
        self.click("Redo")
        self.click("Undo")
        self.one(".plan .lead", "3.0 s, 360 × 640 pixels")
        self.click("Remove: Turn right")
        self.until(lambda: self.shown() == 89, "the last picture first")
        self.assertEqual(numbers_in(self.made()), list(range(89, -1, -1)))

    @long
    def test_a_step_is_changed_in_place(self):
        crop, speed = {"step": "crop", "rect": "0,0,640,180"}, {"step": "speed", "from": "0", "to": "1", "ratio": 2}
        self.open("bars.mp4", crop, speed)
        whole = self.length()
        self.click("Crop to 640 × 180", ".steps button")
        self.assertAlmostEqual(self.length(), whole - 1, delta=0.001)  # as it was before all of them
        self.assertEqual([e.text for e in self.all(".steps li") if "paused" in e.text], ["0.5× from 0:00.00 to 0:01.00\npaused"])
        frame = self.one(".frame").size
        self.assertAlmostEqual(frame["width"] / frame["height"], 16 / 9, delta=0.01)
        fields = self.all(".form input[type=number]")
        self.assertEqual([e.get_attribute("value") for e in fields], ["0", "0", "640", "180"])
        fields[1].send_keys(Keys.CONTROL, "a")
        fields[1].send_keys("90", Keys.ESCAPE)
        self.assertEqual(self.kept_steps(), [crop, speed])
        self.assertAlmostEqual(self.length(), whole, delta=0.001)
        self.press(Keys.ENTER)  # on the step, which has the focus again
        for field, value in zip(self.all(".form input[type=number]"), [0, 0, 640, 270]):
            field.send_keys(Keys.CONTROL, "a")
            field.send_keys(str(value), Keys.TAB)
        self.click("Apply")
        changed = {**crop, "rect": "0,0,640,270"}
        self.assertEqual(self.kept_steps(), [changed, speed])
        self.click("Undo")
        self.assertEqual(self.kept_steps(), [crop, speed])
        self.click("Redo")
        file = self.made()
        w, h, seconds = facts_of(file)
        self.assertEqual((w, h), (640, 270))
        self.assertAlmostEqual(seconds, 4, delta=0.03)
        self.assertEqual(numbers_in(file), list(range(90)))

    @long
    def test_each_kind_of_step_opens_with_its_values(self):
        steps = [({"step": "trim", "from": "0.5", "to": "2.5"}, "Keep this part"),
                 ({"step": "trim", "keep": ["0-0.5", "1-2"]}, "Cut it out"),
                 ({"step": "speed", "from": "0.2", "to": "0.6", "ratio": 0.25}, "Apply"),
                 ({"step": "crop", "rect": "2,4,300,200"}, "Apply"),
                 ({"step": "rotate", "by": "left"}, "[aria-pressed=true]"),
                 ({"step": "loop", "count": 3}, "Apply"),
                 ({"step": "compress", "preset": "360p", "max-size": "1500000"}, "Apply")]
        self.open("bars.mp4", *[step for step, _ in steps])
        whole = self.length()
        for i, (step, button) in enumerate(steps):
            with self.subTest(step=step):
                self.all(".steps button.name")[i].click()
                if button.startswith("["):
                    self.one(".form button" + button).click()
                else:
                    self.click(button, ".form button")
                self.assertEqual(self.kept_steps(), [step for step, _ in steps])
                self.assertAlmostEqual(self.length(), whole, delta=1e-3)

    @long
    def test_clips_are_joined(self):
        self.open("bars.mp4")
        own = self.length()
        self.click("Join", ".tool")
        self.until(lambda: not self.one(".pick button", "broken.mp4").is_enabled(), "what is no clip to be left out")
        self.one(".form input[type=search]").send_keys("hevc")
        self.assertEqual([e.text for e in self.all(".pick button") if e.is_displayed()], ["hevc.mp4"])
        self.click("hevc.mp4", ".pick button")
        self.until(lambda: self.steps() == ["Then hevc.mp4"], "the step")
        self.assertAlmostEqual(self.length(), own + 2, delta=0.03)
        self.scrub(own / self.length() + 0.002)
        self.until(lambda: self.one(".time", "Picture 0") and self.shown() == 0, "the other clip's first picture")
        self.press(Keys.ARROW_LEFT)
        self.until(lambda: self.shown() == 89, "the last picture before it")
        self.press(*[Keys.ARROW_LEFT] * 5, " ")
        self.until(lambda: self.one(".play").get_attribute("aria-label") == "Play" and self.shown() == 59, "playing to the end")
        file = self.made()
        self.assertEqual(numbers_in(file), [*range(90), *range(60)])
        self.assertIn(f"join -- {self.folder}/bars.mp4 {self.folder}/hevc.mp4", self.browser.execute_script(
            "return document.querySelector('.command code').textContent"))
        file.unlink()
        # Behind another step, it is shown whole in that one's shape.
        self.click("Rotate", ".tool")
        self.click("Right", ".form button")
        self.click("Move up: Turn right")
        self.one(".plan .lead", "360 × 640 pixels")
        self.press(Keys.END)
        self.until(lambda: self.shown() == 59, "the other clip upright")
        file = self.made()
        self.assertEqual(facts_of(file)[:2], (360, 640))
        self.assertEqual(numbers_in(file)[90:], [*range(60)])

    @long
    def test_what_is_shown_is_what_is_made(self):
        self.open("bars.mp4", {"step": "trim", "from": "1", "to": "2"}, {"step": "join", "in": ["hevc.mp4"]},
                  {"step": "trim", "keep": ["0-0.5", "1.5-2.5"]}, {"step": "speed", "from": "0.25", "to": "1", "ratio": 2},
                  {"step": "reverse"}, {"step": "loop", "count": 2})
        numbers = numbers_in(self.made())
        self.assertEqual(numbers, [*range(44, 14, -1), *range(44, 29, -1)] * 2)
        self.press(Keys.HOME)
        for i in range(0, len(numbers), 11):
            self.until(lambda: self.shown() == numbers[i], f"picture {i} of what was made")
            self.press(*[Keys.ARROW_RIGHT] * 11)

    def test_one_is_cancelled(self):
        self.open("bars.mp4")
        self.click("Loop", ".tool")
        self.one(".form input").send_keys(Keys.CONTROL, "a")
        self.one(".form input").send_keys("100")
        self.click("Apply")
        self.click("Rotate", ".tool")
        self.click("Half", ".form button")
        self.until(lambda: self.one("button.primary", "Make").is_enabled() and self.all(".plan .lead"), "a plan")
        before = sorted(self.folder.iterdir())
        self.click("Make the clip")
        self.until(lambda: float(self.one("progress").get_attribute("value")) > 0, "progress")
        self.click("Cancel", ".results button")
        self.one(".results .failed", "Cancelled")
        self.assertEqual(sorted(self.folder.iterdir()), before)

    @long
    def test_what_the_browser_cannot_play(self):
        self.open("hevc.mp4")
        self.scrub(0.505)
        number = int(re.search(r"Picture (\d+)", self.one(".time").text)[1])
        self.assertAlmostEqual(number, 30, delta=1)
        self.until(lambda: self.shown() == number, "the right picture")

    @long
    def test_compression_is_compared_and_a_picture_saved(self):
        self.open("bars.mp4")
        self.scrub(0.505)
        number = self.until(self.shown, "a picture")
        self.click("Photo", ".tool")
        self.click("Save the picture")
        self.one(".results .done", "bars-frame.jpg")
        self.assertEqual(numbers_in(self.folder / "bars-frame.jpg"), [number])
        self.click("Compress", ".tool")
        self.click("Compare five seconds")
        line = self.one(".compare .line")
        self.drag(line, 100)
        self.assertGreater(int(line.get_attribute("aria-valuenow")), 55)
        heights = "return [...document.querySelectorAll('.compare video')].map((video) => video.videoHeight)"
        self.until(lambda: self.browser.execute_script(heights) == [480, 360], "both videos")
        self.click("Apply")
        self.assertEqual(self.steps(), ["Compress to 480p"])

    @long
    def test_faults_are_told_in_words_of_the_page(self):
        self.open("bars.mp4", {"step": "narrate", "base": 1, "piece": [{"file": "recording-999.webm", "at": 0, "seconds": 1, "volume": 1}]})
        self.one(".plan .fault", "a recording that the steps need is no longer there.")
        self.click("Remove: Narrate")
        self.click("Rotate", ".tool")
        self.click("Half", ".form button")
        name = self.one("input[type=text]")
        name.send_keys(Keys.CONTROL, "a")
        name.send_keys("a/b")
        self.until(lambda: self.one("button.primary", "Make").is_enabled() and self.all(".plan .lead"), "a plan")
        self.click("Make the clip")
        self.one(".results .failed", "needs a name without “/”, which does not begin with a dot.")
        refusals = [entry["message"] for entry in self.browser.get_log("browser")]  # which the browser notes
        self.assertTrue(refusals and all(" status of 422 " in message for message in refusals), refusals)

    def piece(self):
        return json.loads(self.browser.execute_script("return Object.values(sessionStorage)[0]"))[0]["step"]["piece"][0]

    @long
    def test_narration_is_where_it_was_spoken(self):
        talk = make_clip(self.folder / "talk.mp4", 180)
        self.open(talk.name)
        self.browser.execute_script(LISTEN)
        self.click("Narrate", ".tool")
        self.click("Record")
        self.until(lambda: self.shown() > 75, "the clip to play")
        self.click("Stop", ".record")
        first = self.until(self.piece, "the piece")["at"]
        heard = self.browser.execute_script("return heard")
        soonest = min(late for _, _, late in heard)
        spoken = [at - (late - soonest) for (_, before, _), (at, now, late) in zip(heard, heard[1:]) if before < 0.1 < now][-2:]
        volume = statistics.median(now for _, now, _ in heard if now > 0.1)

        self.drag(self.one(".piece"), self.one(".lane").size["width"] / 6)
        self.until(lambda: abs(self.piece()["at"] - first - 1) < 0.1, "the new start")
        moved = self.piece()["at"] - first
        for number, key in [(0, Keys.HOME)] + [(0, Keys.ARROW_RIGHT)] * 4 + [(1, Keys.ARROW_LEFT)] * 10:  # to 20 %, to 50 %
            self.all(".pieces input[type=range]")[number].send_keys(key)
        self.assertEqual(self.steps(), ["Narrate, 1 piece"])
        file = self.made()
        self.assertEqual(numbers_in(file), list(range(180)))
        told = levels_in(file, SPOKEN)
        rises = [i * LEVEL_STEP for i, (before, now) in enumerate(zip(told, told[1:])) if before < volume / 4 <= now]
        off = [min((rise - moment - moved for rise in rises), key=abs) for moment in spoken]
        base = sum(levels_in(file, SOUND)) / sum(levels_in(talk, SOUND))
        louder = [20 * math.log10(base / 0.2), 20 * math.log10(max(told) / volume / 0.5)]
        print("narration: seconds off", [round(seconds, 3) for seconds in off], "dB louder", [round(value, 1) for value in louder])
        self.assertEqual(len(spoken), 2)
        self.assertLess(max(map(abs, off)), 0.06)
        self.assertLess(max(map(abs, louder)), 2)

    def look(self, width=1360, scheme="light"):
        size = {"width": width, "height": 900, "deviceScaleFactor": 1, "mobile": False}
        for command, values in [("DeviceMetricsOverride", size),
                                ("EmulatedMedia", {"features": [{"name": "prefers-color-scheme", "value": scheme}]})]:
            self.browser.execute_cdp_cmd(f"Emulation.set{command}", values)

    def judge(self, place):
        """Looks for faults in every look, and keeps pictures of them."""
        self.browser.execute_script(self.axe)
        for name, look in LOOKS.items():
            self.look(*look)
            self.until(lambda: self.browser.execute_script(READY), "all pictures")
            self.browser.save_screenshot(str(PICTURES / f"{place}{name}.png"))
            with self.subTest(place=place, look=look):
                self.assertEqual(self.browser.execute_async_script(FAULTS, RULES), [])
        self.look()

    @long
    def test_everybody_can_use_it(self):
        if not (folder := package("axe-core", "4.14.1")):
            self.skipTest("axe-core is not installed, and npm's registry does not give it")
        self.axe = (folder / "axe.min.js").read_text()
        make_scene(self.folder / "evening hills.mp4")
        self.browser.get(self.serving.origin + "/")
        self.until(lambda: len(self.all(".length, .broken")) == len(self.all(".clips li")), "facts of all clips")
        self.judge("list")
        self.open("evening%20hills.mp4")
        self.press(Keys.HOME)
        ActionChains(self.browser).key_down(Keys.SHIFT).send_keys(Keys.ARROW_RIGHT).key_up(Keys.SHIFT).perform()
        self.press("i", Keys.END, Keys.ARROW_LEFT, "o")
        self.one(".handle.end").send_keys(Keys.ARROW_LEFT)
        self.one(".selected", "0:01.00 – 0:05.93")
        self.click("Photo")
        self.press(Keys.ESCAPE)
        self.assertFalse(self.all(".form:not([hidden])"))
        for place, clicks, there in [
            ("clip", [], ".selected"), ("trim", ["Trim"], ".form"), ("speed", ["Keep this part", "Speed"], ".form"),
            ("rotate", ["Apply", "Rotate"], ".form"), ("loop", ["Loop"], ".form"), ("photo", ["Photo"], ".form"),
            ("crop", ["Crop", "4:5"], ".plan .lead"), ("recording", ["Apply", "Narrate", "Record"], ".record.on"),
            ("narrate", ["Stop"], ".pieces"), ("compress", ["Compress"], ".form"),
            ("compare", ["Compare five seconds"], ".compare .line"), ("results", ["Apply", "Make the clip"], ".results .done"),
            ("unfolded", ["The same as a command", "Keys"], "code"), ("beside", ["Open evening hills-edited"], "dialog"),
        ]:
            for text in clicks:
                self.click(text, "button, summary")
            if place == "crop":
                self.scrub(0.4)
            self.one(there)
            self.judge(place)
        if "CLIPWORKS_WRITE_DOCS" in os.environ:
            to_palette(PICTURES / "crop.png", Path(__file__).parents[2] / "docs/page.png")


if __name__ == "__main__":
    unittest.main()
