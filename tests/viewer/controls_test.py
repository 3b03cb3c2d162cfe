"""What an owner does with the page: mouse, fingers, keys; and how it looks and reads."""
import os
import sys
import unittest

sys.path.insert(0, os.path.dirname(__file__))
from support import PageTest, nearest, run, small_pictures


class Controls(PageTest):
    cards = ("busy",)

    def setUp(self):
        self.browser.size(1280, 1000)
        self.open(self.folder / "busy")

    def view(self):
        return self.browser.run("line.view")

    def span(self):
        begin, end = self.view()
        return end - begin

    def line(self):
        """The time line's left edge, the height of its bars, and its width."""
        x, y, width, height = self.browser.box("#line")
        return x, y + .7 * height, width

    def near(self, value, wanted, within):
        self.assertLess(abs(value - wanted), within, f"{value} is not {wanted}")

    # ---- the time line

    def test_the_wheel_zooms_about_the_pointer_and_turns_sideways(self):
        x, y, width = self.line()
        begin, end = self.view()
        at = begin + .25 * (end - begin)
        for _ in range(12):
            self.browser.mouse("mouseWheel", x + .25 * width, y, deltaX=0, deltaY=-120)
        self.browser.wait(f"line.view[1] - line.view[0] < {(end - begin) / 100}")
        begin, end = self.view()
        self.near(begin + .25 * (end - begin), at, .01 * (end - begin))
        self.browser.mouse("mouseWheel", x + .5 * width, y, deltaX=width / 2, deltaY=0)
        self.browser.wait(f"line.view[0] > {begin + .4 * (end - begin)}")
        for _ in range(40):
            self.browser.mouse("mouseWheel", x + .5 * width, y, deltaX=0, deltaY=-200)
        self.browser.wait("line.view[1] - line.view[0] == 4")
        self.browser.key("0")
        self.assertGreater(self.span(), 86400)

    def test_a_drag_moves_a_click_goes_there_and_the_scale_chooses_a_span(self):
        self.browser.run("line.look(list.start - 10, list.start + 30)")
        x, y, width = self.line()
        self.browser.drag((x + .5 * width, y), (x + .75 * width, y))
        self.near(self.view()[0], self.browser.run("list.start") - 20, .5)
        self.browser.drag((x + .25 * width, y), (x, y))
        self.near(self.view()[0], self.browser.run("list.start") - 10, .5)
        self.browser.drag((x + .5 * width, y), (x + .5 * width, y), steps=1)
        self.browser.wait("!player.loading && Math.abs(player.moment - list.start - 10) < .1")
        top = self.browser.box("#line")[1] + 6
        self.browser.drag((x + .3 * width, top), (x + .6 * width, top))
        self.near(self.browser.run("span[0] - list.start"), 2, .2)
        self.near(self.browser.run("span[1] - list.start"), 14, .2)
        self.browser.key("Escape")
        self.assertIsNone(self.browser.run("span"))

    def test_the_marker_scrubs_a_hundred_times(self):
        self.browser.run("line.look(list.start, list.start + 20); goTo(list.start + 2)")
        self.browser.wait("!player.loading && Math.abs(player.moment - list.start - 2) < .1")
        x, y, width = self.line()
        self.browser.drag((x + .1 * width, y), (x + .8 * width, y), steps=100)
        self.browser.wait("!player.loading && Math.abs(player.moment - list.start - 16) < .1")
        self.assertTrue(self.browser.run("byId('scrub').hidden && player.paused"))

    def test_two_fingers_zoom_and_one_moves(self):
        self.browser.size(390, 844)
        self.browser.call("Emulation.setTouchEmulationEnabled", enabled=True, maxTouchPoints=2)
        try:
            self.browser.run("line.look(list.start - 20, list.start + 60)")
            x, y, width = self.line()
            middle = sum(self.view()) / 2
            spread = lambda part: ((x + (.5 - part) * width, y), (x + (.5 + part) * width, y))
            self.browser.touch("touchStart", *spread(.1))
            for i in range(11, 41):
                self.browser.touch("touchMove", *spread(i / 100))
            self.browser.touch("touchEnd")
            self.browser.wait("line.pointers.size === 0")
            self.near(self.span(), 20, 2)
            self.near(sum(self.view()) / 2, middle, 1)
            before = self.view()[0]
            self.browser.touch("touchStart", (x + .8 * width, y))
            for i in range(1, 11):
                self.browser.touch("touchMove", (x + (.8 - .05 * i) * width, y))
            self.browser.touch("touchEnd")
            self.near(self.view()[0] - before, .5 * self.span(), 1)
        finally:
            self.browser.call("Emulation.setTouchEmulationEnabled", enabled=False)

    def test_a_picture_of_the_moment_hangs_under_the_mouse(self):
        self.browser.run("line.look(list.start, list.start + 20)")
        x, y, width = self.line()
        wanted = small_pictures(self.exported(self.folder / "busy", "0:1"))[:250]
        for second in (3, 12, 7):
            self.browser.hover(x + (second + .5) / 20 * width, y, f"!byId('tip').hidden && byId('tipTime').textContent.startsWith('08:00:{second:02}') "
                               "&& !preview.busy && !byId('tipPicture').hidden")
            shown = self.grey("byId('tipPicture')")
            self.assertEqual(nearest(wanted, shown), 25 * second % 250, "the key frame of that second")
        self.browser.run("line.look(list.sections[1].end - 100, list.sections[3].start)")
        self.browser.hover(x + .9 * width, y, "byId('tipTime').textContent.includes('nothing recorded') && byId('tipPicture').hidden")
        self.browser.hover(x, 5, "byId('tip').hidden")

    def test_another_card_ends_what_is_asked_of_the_last_one(self):
        picture = f"preview.ask(0, {self.browser.run('list.start')} + 3, shown => {{ window.shown = shown; }})"
        self.browser.run("setSpan([list.start, list.start + 60]); window.opens = openFiles;"
                         f"openFiles = picked => {{ openFiles = opens; save(); {picture}; return opens(picked); }}; window.shown = null; true")
        self.open(self.folder / "busy")
        self.browser.wait("saving === null && byId('save').textContent === 'Save clip'")
        self.assertEqual(self.browser.run("byId('saveNote').textContent"), "Another card was opened.")
        self.browser.run(picture)
        self.browser.wait("window.shown")

    # ---- keys

    def test_keys(self):
        start = self.browser.run("list.start")
        sections = self.browser.run("list.sections.map(s => s.start)")
        for key, wanted in (("Home", start), ("ArrowRight", start + 5), ("ArrowLeft", start), ("]", sections[1]), ("]", sections[2]),
                            ("[", sections[1]), ("[", start)):
            self.browser.key(key)
            self.browser.wait(f"!player.loading && Math.abs(player.moment - {wanted}) < .1")
        before = self.span()
        self.browser.key("Z")
        self.assertEqual(self.span(), before / 2)
        self.browser.key("z")
        self.assertEqual(self.span(), before)
        for keys, rate in (("+++++++", 16), ("---------", .25), ("++", 1)):
            for key in keys:
                self.browser.key(key)
            self.browser.wait(f"!player.loading && byId('video').playbackRate == {rate} && byId('rate').value == '{rate}'")
        self.browser.key("m")
        self.assertTrue(self.browser.run("byId('video').muted"))
        self.browser.key("m")
        self.assertFalse(self.browser.run("byId('video').muted"))
        self.browser.key("i")
        self.browser.key("ArrowRight")
        self.browser.wait(f"!player.loading && Math.abs(player.moment - {start + 5}) < .1")
        self.browser.key("o")
        self.assertEqual(self.browser.run("span.map(Math.round)"), [start, start + 5])
        self.browser.run("byId('when').focus()")
        self.browser.run("byId('when').dispatchEvent(new KeyboardEvent('keydown', {key: 'Home', bubbles: true})) || true")
        self.assertGreater(self.browser.run("player.moment"), start + 4, "who writes a time moves nothing")

    # ---- pictures

    def test_the_saved_picture_is_the_one_shown(self):
        wanted = small_pictures(self.exported(self.folder / "busy", "0:1"))[:250]
        self.browser.run("goTo(list.start + 3.3)")
        self.shows(wanted, 82)
        self.browser.key("p")
        path = self.browser.downloaded(".png")[0]
        self.addCleanup(path.unlink)
        self.assertEqual(path.name, "picture_2026-03-01_08-00-03.png")
        size = run("ffprobe", "-v", "error", "-show_entries", "stream=width,height", "-of", "csv=p=0", path)
        self.assertEqual(size, b"320,240\n")
        self.assertEqual(nearest(wanted, small_pictures(path)[0]), 82)

    # ---- looks

    def test_fits_every_width_in_light_and_dark(self):
        for width in (320, 390, 768, 1280):
            for dark in (False, True):
                self.browser.size(width, 800, dark)
                self.browser.run("setSpan([list.start, list.start + 5])")
                outside = self.browser.run("[...document.querySelectorAll('body *')].filter(e => e.offsetWidth)"
                                           f".filter(e => (e = e.getBoundingClientRect(), e.left < 0 || e.right > {width} + .5)).map(e => e.id || e.className)")
                self.assertEqual(outside, [], width)
                self.assertLessEqual(self.browser.run("document.documentElement.scrollWidth"), width)
                self.browser.wait("new Promise(done => requestAnimationFrame(() => requestAnimationFrame(() => done(true))))")
                # A corner of the time line between the recordings, and what stands around it.
                bright = self.browser.run("(d => Math.max(d[0], d[1], d[2]))(byId('line').getContext('2d').getImageData(byId('line').width / 2,"
                                          "byId('line').height * .7, 1, 1).data)")
                self.assertEqual(bright < 128, dark, "the time line follows light and dark")
        self.browser.key("Escape")

    def test_everything_has_a_name_that_can_be_read_out(self):
        nodes = self.browser.call("Accessibility.getFullAXTree")["nodes"]
        roles = {}
        for node in nodes:
            role = node.get("role", {}).get("value")
            if not node.get("ignored") and role in ("button", "textbox", "combobox", "slider", "region", "image", "Canvas"):
                roles.setdefault(role, []).append(node.get("name", {}).get("value", ""))
        for role, names in roles.items():
            self.assertNotIn("", names if role != "Canvas" else [], role)
        self.assertTrue({"Play", "One picture back", "Event before", "Earlier", "Save clip"} <= set(roles["button"]), roles["button"])
        self.assertEqual(roles["slider"], ["Time line"])
        self.assertIn("2026-03-02", self.browser.run("byId('line').getAttribute('aria-valuetext')"))


if __name__ == "__main__":
    unittest.main(verbosity=2)
