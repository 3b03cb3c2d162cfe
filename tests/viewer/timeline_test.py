"""recordcard timeline: the page with a card's list and pictures in it, and no card."""
import os
import sys
import unittest

sys.path.insert(0, os.path.dirname(__file__))
from support import TOOL, PageTest, frame_sums, run, small_pictures, tool_list


class Timeline(PageTest):
    cards = ("busy", "busy.img", "b_frames", "clocks")

    def show(self, card, *options, zone="UTC"):
        page = self.folder / "page.html"
        run(TOOL, "timeline", card, page, "--force", *options, env=dict(os.environ, TZ=zone))
        self.browser.open(page.as_uri())
        self.browser.wait("list !== null")
        return page

    def moment(self):
        return self.browser.run("byId('moment').textContent")

    def command(self):
        return self.browser.run("byId('command').textContent")

    def test_shows_days_gaps_events_and_pictures(self):
        page = self.show(self.folder / "busy.img")
        self.assertEqual(self.browser.run("list"), tool_list(self.folder / "busy.img"))
        self.assertEqual(self.browser.run("[...document.querySelectorAll('.day')].map(d => d.dataset.day * 1)"), [20514, 20513])
        self.assertEqual(self.browser.run("document.querySelectorAll('.event').length"), 3)
        self.browser.wait("byId('thumb').complete && byId('thumb').naturalWidth == 288 && !byId('thumb').hidden")
        self.browser.run("goTo(list.sections[2].end + 100)")
        self.assertIn("Nothing was recorded then", self.browser.run("byId('message').textContent"))
        self.assertTrue(self.browser.run("byId('thumb').hidden"))
        self.browser.run("showTip(list.start + 7, 100)")
        self.browser.wait("!byId('tip').hidden && byId('tipThumb').naturalWidth == 288")
        self.browser.run("document.querySelector('#filter button').click()")
        self.assertEqual(self.browser.run("line.events.map(e => e.type)"), [4, 32])
        self.assertNotIn("connect-src", page.read_text())

    def test_follows_the_keyboard_and_gives_commands(self):
        self.show(self.folder / "busy.img")
        for keys, moment in (("Home", "2026-03-01 08:00:00.0"), ("ArrowRight", "2026-03-01 08:00:05.0"), ("]", "2026-03-02 08:00:20.0"),
                             ("e", "2026-03-02 08:00:25.0"), ("E", "2026-03-01 08:00:05.0"), ("Home", "2026-03-01 08:00:00.0"),
                             (".", "2026-03-01 08:00:05.0"), (",", "2026-03-01 08:00:00.0")):
            self.browser.key(keys)
            self.assertEqual(self.moment(), moment, keys)
        self.browser.run("document.querySelector('.event:last-of-type').click()")
        self.assertEqual(self.command(), f"recordcard export {self.folder}/busy.img --from 2026-03-01T08:00:05Z "
                         "--to 2026-03-01T08:00:09Z clip_2026-03-01_08-00-05.mp4")

    def test_no_name_becomes_markup_or_leaves_its_quotes(self):
        card = self.folder / "a <script>alert(1)<b> 'card' Küche"
        os.rename(self.folder / "b_frames", card)
        self.show(card)
        self.assertEqual(self.browser.run("byId('card').textContent"), str(card))
        self.assertEqual(self.browser.run("byId('card').children.length"), 0)
        self.browser.run("setSpan([list.start, list.start + 1])")
        word = "'" + str(card).replace("'", "'\\''") + "'"
        self.assertTrue(self.command().startswith(f"recordcard export {word} --from "), self.command())

    def test_keeps_the_zone_it_was_made_in_whatever_the_browser_thinks(self):
        self.show(self.folder / "busy", zone="America/New_York")
        self.browser.key("Home")
        self.assertEqual(self.moment(), "2026-03-01 03:00:00.0")
        self.assertEqual(self.browser.run("byId('zone').textContent"), "Times: UTC−05:00")
        self.browser.run("byId('zone').click()")
        self.assertEqual((self.moment(), self.browser.run("byId('zone').textContent")), ("2026-03-01 08:00:00.0", "Times: UTC"))
        self.show(self.folder / "busy", "--utc", zone="America/New_York")
        self.assertEqual(self.browser.run("byId('zone').textContent"), "Times: UTC")
        self.show(self.folder / "clocks", zone="America/New_York")  # the clocks go forward between its two sections
        for key, moment in (("Home", "2026-03-01 03:00:00.0"), ("]", "2026-03-09 04:00:00.0")):
            self.browser.key(key)
            self.assertEqual(self.moment(), moment)
        self.browser.run("byId('when').value = '2026-03-09 04:00:02'; byId('goto').requestSubmit()")
        self.assertEqual(self.browser.run("now() - list.sections[1].start"), 2)

    def test_footage_in_the_page_plays_without_the_card(self):
        card = self.folder / "busy.img"
        self.show(card, "--clips", "--event", "1", "--utc")  # of the first section, seconds 5 to 9
        self.browser.wait("!player.loading && byId('video').readyState >= 2")
        self.assertEqual(self.browser.run("list"), tool_list(card))
        self.assertIn("This page plays 5 s of what was recorded", self.browser.run("byId('notice').textContent"))
        pictures = small_pictures(self.exported(self.folder / "busy", "0:1"))[:250]
        for wanted in (125, 130, 249, 201):
            self.browser.run(f"goTo(list.start + {(wanted + .5) / 25})")
            self.shows(pictures, wanted)
        self.browser.run("player.play()")
        self.browser.wait("byId('video').ended && player.moment > list.start + 9.9")

        for away in ("list.start + 2", "list.start + 15", "list.sections[1].start - 50", "list.sections[3].start + 1"):
            self.go(away, "!byId('message').hidden && byId('video').readyState === 0")
            self.assertIn("Nothing was recorded" if "-" in away else "The footage of it is not in this page",
                          self.browser.run("byId('message').textContent"))
        self.browser.run("setSpan([list.start + 3, list.start + 8]); save()")
        self.assertIn("Not all of this is in this page", self.browser.run("byId('saveNote').textContent"))
        self.browser.key(" ")
        self.browser.wait("player.moment > list.start + 5.5 && !player.paused", 60)

        self.browser.run("player.pause(); setSpan([list.start + 6, list.start + 8]); save()")
        self.browser.wait("byId('saveNote').textContent.startsWith('Saved')")
        saved = self.browser.downloaded(".mp4")[0]
        self.addCleanup(saved.unlink)
        times = self.command().split()[3:7]
        run(TOOL, "export", card, *times, self.folder / "event.mp4")
        self.assertEqual(frame_sums(saved), frame_sums(self.folder / "event.mp4"))

    def test_all_footage_in_the_page_is_the_card(self):
        page = self.show(self.folder / "b_frames", "--clips", "--thumbnails", "0")
        self.assertLess(page.stat().st_size, 4 << 20)
        self.browser.wait("!player.loading && byId('video').readyState >= 2")
        self.assertEqual(self.browser.run("[held, byId('notice').hidden, document.querySelectorAll('.footage').length]"), [None, True, 0])

    def test_a_card_opened_in_it_is_played(self):
        self.show(self.folder / "busy", zone="America/New_York")
        self.open(self.folder / "busy")
        self.assertTrue(self.browser.run("byId('thumb').hidden && !document.body.classList.contains('overview')"))
        self.go("list.start", "byId('moment').textContent == '2026-03-01 03:00:00.0'")


if __name__ == "__main__":
    unittest.main(verbosity=2)
