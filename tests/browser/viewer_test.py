#!/usr/bin/python3
"""The viewer in a real browser: headless Chromium opens the page for a small flow, moves a slider,
drags Ripple's light handle, steps the timeline, and checks the inputs and the picture.

    viewer_test.py CRATE07 [--screenshots DIR] [--latency N]

--screenshots writes pictures of the page for Ripple, Clouds and Rain; --latency measures, N times,
the time from a slider's move to its new picture at 720x486 and prints the figures. Exits 77 (a
skipped test) when Chromium or Selenium is not installed.
"""
import argparse
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import time
import urllib.request

try:
    from selenium import webdriver
    from selenium.webdriver.chrome.service import Service
    from selenium.webdriver.common.action_chains import ActionChains
    from selenium.webdriver.common.by import By
    from selenium.webdriver.support.ui import WebDriverWait
except ImportError:
    print("skipped: python3-selenium is not installed")
    sys.exit(77)

CHROMIUM = shutil.which("chromium") or "/usr/bin/chromium"
DRIVER = shutil.which("chromedriver") or "/usr/bin/chromedriver"

FLOWS = {
    "small": {
        "size": [160, 108], "range": [1, 5],
        "nodes": [
            {"name": "bg", "type": "Background", "pattern": "bars"},
            {"name": "ripple", "type": "Ripple", "source": "bg",
             "inputs": {"Doht": 1, "Liht": [0.25, 0.75]}},
        ],
    },
    "ripple": {
        "size": [720, 486], "range": [1, 50],
        "nodes": [
            {"name": "bg", "type": "Background", "pattern": "grid",
             "colour": [12000, 20000, 30000], "colour2": [60000, 56000, 40000], "cell": 36},
            {"name": "ripple", "type": "Ripple", "source": "bg",
             "inputs": {"Doht": 1, "Liht": [0.3, 0.7], "XYmp": 30, "XYeq": 6}},
        ],
    },
    "clouds": {
        "size": [720, 486], "range": [1, 50],
        "nodes": [
            {"name": "horizon", "type": "Background", "pattern": "gradient",
             "colour": [9000, 26000, 52000], "colour2": [30000, 44000, 62000]},
            {"name": "sky", "type": "Clouds", "source": "horizon", "preset": "Lit2"},
        ],
    },
    "rain": {
        "size": [720, 486], "range": [1, 30],
        "nodes": [
            {"name": "street", "type": "Background", "pattern": "gradient",
             "colour": [6000, 7000, 9000], "colour2": [20000, 22000, 26000]},
            {"name": "rain", "type": "Rain", "source": "street", "preset": "Squall"},
        ],
    },
}


def fail(message):
    print("FAIL: " + message)
    sys.exit(1)


class Viewer:
    """A crate07 server for one flow, in a folder of its own, and a headless Chromium on its page."""

    def __init__(self, binary, flow, width=1280, height=800):
        self.dir = tempfile.mkdtemp(prefix="crate07-browser-")
        with open(os.path.join(self.dir, "flow.json"), "w") as f:
            json.dump(flow, f)
        self.server = subprocess.Popen([binary, "serve", "flow.json", "--port", "0"], cwd=self.dir,
                                       stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        line = self.server.stdout.readline()
        match = re.search(r"http://127\.0\.0\.1:\d+/", line)
        if not match:
            self.close()
            fail("the server did not start: " + line)
        self.url = match.group(0)
        options = webdriver.ChromeOptions()
        options.binary_location = CHROMIUM
        for a in ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
                  "--disable-background-networking", "--disable-component-update", "--disable-sync",
                  "--user-data-dir=" + os.path.join(self.dir, "profile"),
                  "--window-size=%d,%d" % (width, height)]:
            options.add_argument(a)
        self.driver = webdriver.Chrome(service=Service(DRIVER), options=options)
        self.driver.set_script_timeout(30)
        self.driver.get(self.url)
        self.wait(lambda d: d.execute_script("return document.body.dataset.ready === '1'"),
                  "the page to load")
        self.wait(lambda d: self.seq() > 0, "the first picture")

    def wait(self, condition, what, seconds=30):
        try:
            WebDriverWait(self.driver, seconds, poll_frequency=0.05).until(condition)
        except Exception:
            fail("timed out waiting for " + what + "; message: " + self.message())

    def api(self, path):
        with urllib.request.urlopen(self.url + path, timeout=30) as r:
            return json.loads(r.read())

    def seq(self):
        return int(self.driver.execute_script("return Number(document.getElementById('picture').dataset.seq || 0)"))

    def message(self):
        try:
            return self.driver.find_element(By.ID, "message").text
        except Exception:
            return ""

    def picture_sum(self):
        # A checksum of the picture as the page shows it.
        return self.driver.execute_script("""
            const img = document.getElementById('picture');
            const c = document.createElement('canvas');
            c.width = img.naturalWidth; c.height = img.naturalHeight;
            const g = c.getContext('2d');
            g.drawImage(img, 0, 0);
            const d = g.getImageData(0, 0, c.width, c.height).data;
            let h = 0;
            for (let i = 0; i < d.length; i++) h = (h * 31 + d[i]) >>> 0;
            return h;""")

    def screen_point(self, x, y):
        # Image pixels (y up) to the offset from the picture's centre, in CSS pixels.
        return self.driver.execute_script("""
            const r = document.getElementById('picture').getBoundingClientRect();
            const img = document.getElementById('picture');
            return [arguments[0] / img.naturalWidth * r.width - r.width / 2,
                    (img.naturalHeight - arguments[1]) / img.naturalHeight * r.height - r.height / 2];""",
            x, y)

    def close(self):
        if getattr(self, "driver", None):
            self.driver.quit()
        self.server.terminate()
        try:
            self.server.wait(timeout=10)
        except subprocess.TimeoutExpired:
            self.server.kill()
        shutil.rmtree(self.dir, ignore_errors=True)


def end_to_end(binary):
    v = Viewer(binary, FLOWS["small"])
    try:
        d = v.driver
        # A slider: a click on its right part moves it, the input follows, the picture changes.
        before_sum, before_seq = v.picture_sum(), v.seq()
        slider = d.find_element(By.CSS_SELECTOR, '.row[data-id="XYmp"] input[type=range]')
        ActionChains(d).move_to_element_with_offset(slider, slider.size["width"] // 2 - 4, 0).click().perform()
        v.wait(lambda _: v.api("api/node?node=ripple")["values"]["XYmp"]["value"] > 90, "X Amp to move")
        v.wait(lambda _: v.seq() > before_seq, "the picture after the slider")
        if v.picture_sum() == before_sum:
            fail("the picture did not change after the slider moved")
        shown = d.find_element(By.CSS_SELECTOR, '.row[data-id="XYmp"] input[type=number]').get_attribute("value")
        if abs(float(shown) - v.api("api/node?node=ripple")["values"]["XYmp"]["value"]) > 1e-3:
            fail("the number box shows %s" % shown)

        # The light handle: from (40, 81) to (120, 27) in image pixels, y up.
        picture = d.find_element(By.ID, "picture")
        sx, sy = v.screen_point(40, 81)
        ex, ey = v.screen_point(120, 27)
        seq = v.seq()
        (ActionChains(d).move_to_element_with_offset(picture, sx, sy).click_and_hold()
         .pause(0.3).move_to_element_with_offset(picture, (sx + ex) / 2, (sy + ey) / 2).pause(0.3)
         .move_to_element_with_offset(picture, ex, ey).pause(0.3).release().perform())
        v.wait(lambda _: v.api("api/flow")["undo"][-1:] == ["ripple: Light"], "the drag's undo step")
        light = v.api("api/node?node=ripple")["values"]["Liht"]["value"]
        if abs(light[0] - 0.75) > 0.02 or abs(light[1] - 0.25) > 0.02:
            fail("the drag left Light at %s, not near [0.75, 0.25]" % light)
        v.wait(lambda _: v.seq() > seq, "the picture after the drag")
        x_box = d.find_element(By.CSS_SELECTOR, '.row[data-id="Liht"] input[type=number]')
        v.wait(lambda _: abs(float(x_box.get_attribute("value")) - light[0]) < 1e-4, "the panel to follow the drag")

        # Undo from the page puts the light back.
        d.find_element(By.ID, "undo").click()
        v.wait(lambda _: v.api("api/node?node=ripple")["values"]["Liht"]["value"] == [0.25, 0.75], "undo")

        # The timeline: a step renders the next frame.
        seq = v.seq()
        d.find_element(By.ID, "step-next").click()
        v.wait(lambda _: "frame 2 of" in d.find_element(By.ID, "frame-label").text, "frame 2")
        v.wait(lambda _: v.seq() > seq, "the picture of frame 2")
        if v.api("api/flow")["frame"] != 2:
            fail("the server stands on frame %s" % v.api("api/flow")["frame"])

        # A refused value shows a message and changes nothing.
        box = d.find_element(By.CSS_SELECTOR, '.row[data-id="XYmp"] input[type=number]')
        box.clear()
        box.send_keys("250\n")
        v.wait(lambda _: "above the allowed range" in v.message(), "the refusal")
        if v.api("api/node?node=ripple")["values"]["XYmp"]["value"] > 100:
            fail("a refused value was written")
        # Hidden inputs follow the tool's rules: the colour's alpha channel is never shown.
        if d.find_element(By.CSS_SELECTOR, '.row[data-id="LiuR,LiuG,LiuB,LiuA"] input[type=number]').is_displayed():
            fail("the hidden alpha channel is shown")
    finally:
        v.close()
    print("ok: slider, handle drag, undo, timeline step, refusal")


def screenshots(binary, folder):
    for name in ("ripple", "clouds", "rain"):
        v = Viewer(binary, FLOWS[name], 1400, 820)
        try:
            if name == "rain":
                # The tool's own pre-roll fills the picture with falling streaks.
                seq = v.seq()
                v.driver.find_element(By.CSS_SELECTOR, '.row[data-id="Rel1"] button').click()
                v.wait(lambda _: v.seq() > seq, "the picture after the pre-roll")
            time.sleep(0.5)
            path = os.path.join(folder, "viewer-%s.png" % name)
            v.driver.save_screenshot(path)
            print("wrote " + path)
        finally:
            v.close()


def latency(binary, count):
    v = Viewer(binary, FLOWS["ripple"])
    try:
        figures = []
        for i in range(count):
            ms = v.driver.execute_async_script("""
                const done = arguments[arguments.length - 1];
                const img = document.getElementById('picture');
                const slider = document.querySelector('.row[data-id="XYeq"] input[type=range]');
                const seq = Number(img.dataset.seq);
                const t0 = performance.now();
                slider.value = String(arguments[0]);
                slider.dispatchEvent(new Event('input'));
                const poll = () => Number(img.dataset.seq) > seq
                    ? requestAnimationFrame(() => done(performance.now() - t0))
                    : setTimeout(poll, 1);
                poll();""", 5 + (i % 10))
            figures.append(ms)
        figures.sort()
        print("slider to picture at 720x486, %d moves: median %.0f ms, best %.0f ms, worst %.0f ms"
              % (count, figures[len(figures) // 2], figures[0], figures[-1]))
    finally:
        v.close()


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("crate07")
    parser.add_argument("--screenshots")
    parser.add_argument("--latency", type=int)
    args = parser.parse_args()
    args.crate07 = os.path.abspath(args.crate07)
    if not os.path.exists(CHROMIUM) or not os.path.exists(DRIVER):
        print("skipped: chromium and chromium-driver are not installed")
        sys.exit(77)
    if args.screenshots:
        screenshots(args.crate07, args.screenshots)
    elif args.latency:
        latency(args.crate07, args.latency)
    else:
        end_to_end(args.crate07)


if __name__ == "__main__":
    main()
