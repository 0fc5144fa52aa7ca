#!/usr/bin/python3
"""The web player in a real browser against the real controller.

Starts quillon-server (offscreen) on a temporary home that shares a folder of
videos made by ffmpeg here, drives Debian's headless chromium through
selenium, and checks: the library lists the shared folder; the grid fills in
the lengths and the filter narrows it; a direct-play MP4 and an AVI through
HLS (the browser's own, and hls.js) play past one second; the French sidecar
(latin-1) is the showing track and its cue reads as the decoded text; space,
left arrow and f; back and forward move between the grid and the player, which
resumes where it was left; nothing scrolls sideways at 375 px; a stopped
server gives the page's unreachable message and a password-protected one its
401 message.

    web_player.py --program build/bin/quillon-server
"""
import argparse
import hashlib
import json
import os
import random
import signal
import socket
import subprocess
import sys
import tempfile
import time
import unittest
import urllib.error
import urllib.request

try:
    from selenium import webdriver
    from selenium.common.exceptions import TimeoutException, WebDriverException
    from selenium.webdriver.chrome.service import Service
    from selenium.webdriver.common.by import By
    from selenium.webdriver.common.keys import Keys
    from selenium.webdriver.support.ui import WebDriverWait
except ImportError as error:  # the set-up installs python3-selenium
    sys.exit(f"web_player: python3-selenium is missing ({error}); run scripts/setup")

CHROMIUM = os.environ.get("QUILLON_CHROMIUM", "/usr/bin/chromium")
CHROMEDRIVER = os.environ.get("QUILLON_CHROMEDRIVER", "/usr/bin/chromedriver")
FRENCH = "Bientôt à la plage, François !\nÇa va très bien."
ENGLISH = "Soon at the beach, François!"
PASSWORD = "Été 2019"

ARGS = None


def free_port():
    # The controller takes ports from 1024 to 55000, below the usual ephemeral range's end.
    for _ in range(50):
        port = random.randint(20000, 50000)
        with socket.socket() as probe:
            try:
                probe.bind(("127.0.0.1", port))
                return port
            except OSError:
                continue
    raise RuntimeError("no free port")


def ffmpeg(*args):
    subprocess.run(["ffmpeg", "-loglevel", "error", "-y", *args], check=True, timeout=60)


def make_videos(folder):
    os.makedirs(folder)
    source = ["-f", "lavfi", "-i", "testsrc2=duration=30:size=320x240:rate=25",
              "-f", "lavfi", "-i", "sine=frequency=440:duration=30"]
    mp4 = os.path.join(folder, "Harbour walk.mp4")
    ffmpeg(*source, "-c:v", "libx264", "-pix_fmt", "yuv420p", "-preset", "veryfast",
           "-c:a", "aac", "-movflags", "+faststart", mp4)
    ffmpeg(*source, "-c:v", "mpeg4", "-q:v", "5", "-c:a", "libmp3lame",
           os.path.join(folder, "Old tape.avi"))
    os.link(mp4, os.path.join(folder, "Zebra crossing.mp4"))
    # Latin-1 bytes that are not UTF-8: only the subtitle charset setting reads them right.
    cue = "1\r\n00:00:00,000 --> 00:00:07,500\r\n{}\r\n\r\n"
    with open(os.path.join(folder, "Harbour walk.fr.srt"), "wb") as srt:
        srt.write(cue.format(FRENCH.replace("\n", "\r\n")).encode("latin-1"))
    with open(os.path.join(folder, "Harbour walk.en.srt"), "wb") as srt:
        srt.write(cue.format(ENGLISH).encode("latin-1"))


def settings_line(key, value):
    if isinstance(value, bool):
        return f"{key}=bool:{'true' if value else 'false'}"
    if isinstance(value, int):
        return f"{key}=int:{value}"
    return f"{key}=string:{value}"


class Controller:
    """The real program on a home of its own."""

    def __init__(self, root, port, videos, password=None):
        self.root, self.port = root, port
        self.home = os.path.join(root, "home")
        config = os.path.join(self.home, ".config")
        runtime = os.path.join(root, "runtime")
        app = os.path.join(self.home, "Library", "Application Support", "QuillonServer")
        for path in (os.path.join(config, "Quillon"), runtime, app):
            os.makedirs(path, exist_ok=True)
        os.chmod(runtime, 0o700)
        settings = {
            "hasBeenRun": True, "serverRunning": True,
            "ListenOnCustomPort": True, "CustomPort": port,
            "SubtitlePreferredLanguage1": "French", "SubtitleDefaultCharset": "ISO-8859-1",
            "SubtitleFontFamilyName": "DejaVu Serif", "SubtitleFontSize": 120,
        }
        if password is not None:
            digest = hashlib.sha1(("Q#48" + password + "&5m").encode()).hexdigest().upper()
            settings.update({"requiresPassword": True, "passwordDigest": digest, "passwordLength": len(password)})
        with open(os.path.join(config, "Quillon", "QuillonServer.conf"), "w", encoding="utf-8") as conf:
            conf.write("\n".join(settings_line(k, v) for k, v in settings.items()) + "\n")
        with open(os.path.join(app, "folders.txt"), "w", encoding="utf-8") as folders:
            json.dump({"folders": [{"name": "Holidays", "type": "DiskFolder", "id": videos}]}, folders)
        env = dict(os.environ, HOME=self.home, XDG_CONFIG_HOME=config, XDG_RUNTIME_DIR=runtime,
                   XDG_CACHE_HOME=os.path.join(self.home, ".cache"), QT_QPA_PLATFORM="offscreen")
        self.log = open(os.path.join(root, "program.log"), "ab")
        self.process = subprocess.Popen([ARGS.program], env=env, stdout=self.log, stderr=subprocess.STDOUT)
        self.wait_until_serving()

    def url(self, path="/"):
        return f"http://127.0.0.1:{self.port}{path}"

    def wait_until_serving(self):
        deadline = time.monotonic() + 40
        while time.monotonic() < deadline:
            if self.process.poll() is not None:
                raise AssertionError(f"the controller ended with {self.process.returncode}:\n{self.output()}")
            try:
                with urllib.request.urlopen(self.url("/api/library"), timeout=2):
                    return
            except urllib.error.HTTPError:
                return  # a 401 answers too
            except OSError:
                time.sleep(0.2)
        raise AssertionError(f"nothing answered on port {self.port}:\n{self.output()}")

    def output(self):
        self.log.flush()
        with open(os.path.join(self.root, "program.log"), "rb") as log:
            return log.read().decode("utf-8", "replace")[-4000:]

    def stop(self):
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGTERM)
            try:
                self.process.wait(timeout=15)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()
        self.log.close()


def start_browser(profile):
    for path in (CHROMIUM, CHROMEDRIVER):
        if not os.access(path, os.X_OK):
            raise AssertionError(f"{path} is missing: the set-up installs chromium and chromium-driver")
    options = webdriver.ChromeOptions()
    options.binary_location = CHROMIUM
    for flag in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
                 "--disable-background-networking", "--disable-component-update", "--disable-sync",
                 "--autoplay-policy=no-user-gesture-required", "--mute-audio", f"--user-data-dir={profile}"):
        options.add_argument(flag)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    try:
        browser = webdriver.Chrome(service=Service(CHROMEDRIVER), options=options)
    except WebDriverException as error:
        raise AssertionError(f"chromium could not start through chromedriver: {error.msg}") from error
    browser.set_window_size(1280, 900)
    browser.set_page_load_timeout(30)
    return browser


class WebPlayerTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.tmp = tempfile.TemporaryDirectory(prefix="web_player.")
        cls.videos = os.path.join(cls.tmp.name, "videos")
        make_videos(cls.videos)
        cls.browser = start_browser(os.path.join(cls.tmp.name, "profile"))

    @classmethod
    def tearDownClass(cls):
        cls.browser.quit()
        cls.tmp.cleanup()

    def setUp(self):
        self.controller = None

    def tearDown(self):
        if self.controller:
            self.controller.stop()
        for entry in self.browser.get_log("browser"):
            if entry["level"] == "SEVERE":
                print("browser:", entry["message"], file=sys.stderr)

    def start(self, name, password=None):
        root = os.path.join(self.tmp.name, name)
        self.controller = Controller(root, free_port(), self.videos, password)
        return self.controller

    def until(self, condition, seconds, what):
        try:
            return WebDriverWait(self.browser, seconds, poll_frequency=0.2).until(lambda b: condition())
        except TimeoutException:
            page = self.js("return document.body.innerText.slice(0, 600)")
            self.fail(f"timed out after {seconds} s waiting for {what}; the page shows:\n{page}\n"
                      f"controller log:\n{self.controller.output() if self.controller else ''}")

    def js(self, script, *args):
        return self.browser.execute_script(script, *args)

    def visible_cards(self):
        """The names shown in the grid, without their extensions."""
        names = self.js("return [...document.querySelectorAll('#items li')].filter(e => !e.hidden)"
                        ".map(e => e.querySelector('.card-name').textContent)")
        return [os.path.splitext(name)[0] if name.endswith((".mp4", ".avi")) else name for name in names]

    def play_until_one_second(self, seconds):
        self.until(lambda: (self.js("const v = document.getElementById('video'); return v ? v.currentTime : 0")
                            or 0) > 1, seconds, "the video to pass one second")
        return self.js("return document.body.dataset.playback")

    def test_browse_filter_and_play(self):
        controller = self.start("open")
        self.browser.get(controller.url())
        self.until(lambda: "Holidays" in self.js(
            "return [...document.querySelectorAll('#sections .row-name')].map(e => e.textContent)"),
            20, "the shared folder in the library")

        self.browser.find_element(By.XPATH, "//a[.//span[@class='row-name' and text()='Holidays']]").click()
        names = ["Harbour walk", "Old tape", "Zebra crossing"]
        self.until(lambda: sorted(self.visible_cards()) == names, 20, "the three videos in the grid")
        # Lengths come from ffprobe after the first listing; the grid fills them in.
        self.until(lambda: self.js("return [...document.querySelectorAll('#items .duration')]"
                                   ".map(e => e.textContent)") == ["Duration 0:30"] * 3,
                   25, "the lengths in the grid")
        section_url = self.browser.current_url
        self.assertRegex(section_url, r"/#/sections/[^/]+$")

        box = self.browser.find_element(By.ID, "filter")
        box.send_keys("zeb")
        self.assertEqual(self.visible_cards(), ["Zebra crossing"])
        box.send_keys("ra x")
        self.assertEqual(self.visible_cards(), [])
        self.assertIn("matches", self.browser.find_element(By.ID, "no-match").text)
        self.js("const f = document.getElementById('filter'); f.value = 'WALK'; f.dispatchEvent(new Event('input'))")
        self.assertEqual(self.visible_cards(), ["Harbour walk"])

        # Direct play, with the French sidecar showing and the English one not.
        self.browser.find_element(By.CSS_SELECTOR, "#items li:not([hidden]) a").click()
        self.assertEqual(self.play_until_one_second(20), "direct")
        tracks = self.until(lambda: self.js("""
            const tracks = [...document.getElementById('video').textTracks];
            const shown = tracks.find(t => t.mode === 'showing');
            if (!shown || !shown.cues || !shown.cues.length) return null;
            return {modes: tracks.map(t => t.language + ':' + t.mode), cue: shown.cues[0].text};"""),
            15, "the showing track's cues")
        self.assertEqual(tracks["cue"], FRENCH)
        self.assertEqual(tracks["modes"], ["fr:showing", "en:disabled"])
        cue_style = self.js("return document.getElementById('cue-style').textContent")
        self.assertIn('"DejaVu Serif"', cue_style)
        self.assertIn("font-size: 120%", cue_style)

        # Keys: space pauses and plays, left goes 10 s back.
        body = self.browser.find_element(By.TAG_NAME, "body")
        video = "document.getElementById('video')"
        body.send_keys(" ")
        self.until(lambda: self.js(f"return {video}.paused"), 5, "space to pause")
        body.send_keys(" ")
        self.until(lambda: not self.js(f"return {video}.paused"), 5, "space to play")
        self.js(f"{video}.currentTime = 12")
        body.send_keys(Keys.ARROW_LEFT)
        self.until(lambda: 1.5 < self.js(f"return {video}.currentTime") < 5, 5, "left to go 10 s back")
        body.send_keys("f")
        self.until(lambda: self.js("return document.fullscreenElement && document.fullscreenElement.id"),
                   5, "f for full screen")
        body.send_keys("f")
        self.until(lambda: not self.js("return document.fullscreenElement"), 5, "f to leave full screen")

        # Back to the grid and forward to the player again, where it was left.
        self.js(f"{video}.pause(); {video}.currentTime = 6")
        self.until(lambda: not self.js(f"return {video}.seeking"), 5, "the seek to 6 s")
        self.browser.back()
        self.until(lambda: self.browser.current_url == section_url and len(self.visible_cards()) == 3,
                   10, "the grid after going back")
        self.assertTrue(self.js("return document.querySelector('#items .progress') !== null"),
                        "the card shows how far it was watched")
        self.browser.forward()
        self.until(lambda: self.js("return document.body.dataset.playback") == "direct", 10, "the player after forward")
        self.assertIn("Resumed at 0:06", self.browser.find_element(By.CLASS_NAME, "resume").text)
        self.until(lambda: self.js(f"return {video}.currentTime") >= 6, 10, "playback from 6 s")

        # The AVI needs the conversion: the browser's HLS where it has one.
        self.browser.back()
        self.until(lambda: len(self.visible_cards()) == 3, 10, "the grid")
        self.browser.find_element(By.PARTIAL_LINK_TEXT, "Old tape").click()
        path = self.play_until_one_second(60)
        self.assertIn(path, ("native-hls", "hls.js"))
        print(f"web_player: chromium played the AVI through {path}", file=sys.stderr)

        # The bundled hls.js, on a reloaded play address (as from a bookmark).
        play_hash = self.browser.current_url.split("#", 1)[1]
        self.browser.get(controller.url(f"/?player=hls.js#{play_hash}"))
        self.assertEqual(self.play_until_one_second(60), "hls.js")

        # A phone's width: nothing scrolls sideways, in the player or the grid.
        self.browser.set_window_size(375, 812)
        wide = "return document.documentElement.scrollWidth - window.innerWidth"
        self.assertLessEqual(self.js(wide), 0, "the player at 375 px")
        self.js("location.hash = arguments[0]", section_url.split("#", 1)[1])
        self.until(lambda: len(self.visible_cards()) == 3, 10, "the grid")
        self.assertLessEqual(self.js(wide), 0, "the grid at 375 px")
        self.browser.set_window_size(1280, 900)

        # A server that went away: the page says so on the next step.
        controller.stop()
        self.js("location.hash = '#/'")
        self.until(lambda: self.js(
            "const n = document.getElementById('notice'); return n && n.dataset.kind === 'unreachable'"),
            10, "the page's unreachable message")

    def test_password_needed(self):
        controller = self.start("locked", password=PASSWORD)
        self.browser.get(controller.url())
        self.until(lambda: self.js(
            "const n = document.getElementById('notice'); return n && n.dataset.kind === 'unauthorized'"),
            15, "the page's password message")
        self.assertIn("needs a password", self.browser.find_element(By.ID, "notice").text)


def main():
    global ARGS
    parser = argparse.ArgumentParser()
    parser.add_argument("--program", required=True)
    ARGS, rest = parser.parse_known_args()
    unittest.main(argv=[sys.argv[0], "-v", *rest])


if __name__ == "__main__":
    main()
