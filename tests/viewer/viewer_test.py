"""viewer.html in a real browser: opens, plays, seeks, saves; compared with recordcard and FFmpeg."""
import contextlib
import http.client
import json
import os
import pathlib
import random
import re
import shutil
import socket
import subprocess
import sys
import tempfile
import time
import unittest

sys.path.insert(0, os.path.dirname(__file__))
from browser import Browser
from support import (PAGE, ROOT, TOOL, CardTest, PageTest, frame_sums, nearest, place_in_image, run, small_pictures, tool_list,
                     unreadable)


class Viewer(PageTest):
    cards = ("busy", "busy.img", "b_frames", "h265", "mixed", "odd", "border", "many", "empty")

    def save(self, card, begin, end, status=0):
        """(what the page saves, what the tool exports) of a span, as files."""
        out = self.folder / "out"
        shutil.rmtree(out, ignore_errors=True)
        out.mkdir()
        self.browser.run(f"setSpan([{begin}, {end}]); save()")
        self.browser.wait("byId('saveNote').textContent.startsWith('Saved')")
        count = int(self.browser.run("byId('saveNote').textContent.split(' ')[1]"))
        own = [shutil.move(saved, out / f"page-{i}.mp4") for i, saved in enumerate(self.browser.downloaded(".mp4", count))]
        command = self.browser.run("byId('command').textContent").split()
        times = command[command.index("--from"):command.index("--to") + 2]
        exported = subprocess.run([TOOL, "export", card, *times, out / "tool.mp4"], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.assertEqual(exported.returncode, status)
        return own, [out / "tool.mp4"] + sorted(out.glob("tool-*.mp4"))

    # ---- what is there

    def test_opens_folder_image_and_large_image_and_lists_what_the_tool_lists(self):
        large = self.folder / "large.img"  # a partition that begins at 5 GiB
        image, start = self.folder / "busy.img", 5 << 30
        with open(large, "wb") as file:
            table = bytearray(512)
            table[446 + 4] = 0x0C
            table[446 + 8:446 + 12] = (start // 512).to_bytes(4, "little")
            table[510:512] = b"\x55\xaa"
            file.write(table)
            file.truncate(start + image.stat().st_size)
        run("dd", f"if={image}", f"of={large}", "bs=1M", f"seek={start >> 20}", "conv=notrunc,sparse", "status=none")
        for card in (self.folder / "busy", image, large):
            with self.subTest(card=card.name):
                self.open(card)
                self.assertEqual(self.browser.run("list"), tool_list(card))
                self.assertGreater(self.browser.run("byId('video').videoWidth"), 0)
                self.assertLess(self.browser.run("source.ask('statistics').then(s => s.bytesRead)"), 24 << 20, "only what is needed is read")

    def test_a_card_of_6000_sections_is_shown_in_bounded_memory(self):
        self.open(self.folder / "many")
        self.assertEqual(len(self.browser.run("list.sections")), 6000)
        self.browser.run("(async () => { for (let i = 0; i < 100; ++i) { line.zoom(.8); scrubTo(list.start + i * 1200); line.paint();"
                         "await new Promise(requestAnimationFrame); } showAll(); })()")
        self.go("list.sections[3000].start", "Math.abs(player.moment - list.sections[3000].start) < 1 && byId('video').readyState >= 2")
        memory = self.browser.run("source.ask('statistics').then(s => s.memory)")
        self.assertLess(memory, 64 << 20)
        self.assertLess(self.browser.call("Runtime.getHeapUsage")["usedSize"], 64 << 20)

    def test_empty_and_foreign_cards_are_told_and_names_do_no_harm(self):
        self.open(self.folder / "empty", "list !== null")
        self.assertIn("Nothing is recorded", self.browser.run("byId('notice').textContent"))
        foreign = self.folder / "<img src=x onerror=alert(1)>.img"
        foreign.write_bytes(os.urandom(1 << 20))
        self.browser.pick("#files", [foreign])
        self.browser.wait("byId('notice').textContent.startsWith('This is not a recording card')")
        self.browser.pick("#files", [self.folder / "busy" / "hi000000.mp4"])
        self.browser.wait("byId('notice').textContent.includes('index000.bin')")
        self.assertEqual(self.browser.run("document.querySelectorAll('#notice *, #card *').length"), 0, "names are no markup")

    def open_if_it_is_a_card(self, card):
        self.open(card, "(list !== null && !player.loading) || byId('notice').textContent.startsWith('This is not')")

    def test_damaged_cards_show_what_the_tool_lists(self):
        for file, offset, length in (("index000.bin", 0, 1 << 19), ("index000.bin", 1024, 48), ("index000.bin", 131072, 4096),
                                     ("event000.bin", 0, 1 << 16), ("hi000000.mp4", 0, 700), ("hi000000.mp4", 100000, 300000),
                                     ("hi000000.mp4", 0xFC00000, 4096)):
            for data in (bytes(length), random.Random(offset).randbytes(length)):
                card = self.copied("busy")
                with open(card / file, "r+b") as changed:
                    changed.seek(offset)
                    changed.write(data)
                with self.subTest(file=file, offset=offset, zeros=not any(data)):
                    self.open_if_it_is_a_card(card)
                    self.assertEqual(self.browser.run("list"), tool_list(card))
                    for moment in ("list.start + 1", "list.sections[list.sections.length >> 1].start", "list.end"):
                        if self.browser.run("list !== null && list.sections.length > 0"):
                            self.go(moment)

    def test_a_missing_file_is_told_and_the_others_play(self):
        card = self.copied("border")
        (card / "hi000000.mp4").unlink()
        self.open(card)
        self.assertEqual(self.browser.run("list"), tool_list(card))
        self.assertRegex(self.browser.run("byId('notice').textContent"), "^hi000000.mp4 is missing: 1 section from 2026-03-01 .* cannot be shown[.]$")
        self.assertEqual(self.browser.run("emptyText(list.lost[0].start + 1)"), "hi000000.mp4 is missing")
        self.assertEqual(self.browser.run("list.sections.map(s => s.file)"), [1])
        self.assertEqual(self.browser.run("byId('video').videoWidth"), 320)

    def test_a_card_that_is_taken_out_is_asked_for_again(self):
        card = self.copied("border")
        self.open(card)
        shutil.rmtree(card)
        self.browser.run("goTo(list.start + 1)")
        self.browser.wait("byId('message').textContent.includes('Pick it again')")

    def test_an_unreadable_page_costs_no_more_than_itself(self):
        end = max(s["bytes"] for s in tool_list(self.folder / "busy")["sections"])
        footage = "cannot be read: pictures there are left out or damaged[.]"
        cases = (("hi000000.mp4", 0, footage), ("hi000000.mp4", end // 2 // 4096 * 4096, footage), ("hi000000.mp4", end // 4096 * 4096, footage),
                 ("hi000000.mp4", 0xFC00000, footage), ("event000.bin", 0, "events that stand there are left out[.]"),
                 ("index000.bin", 131072, "Nothing of what is recorded on this card can be shown[.].* recordings that it names there are left out[.]"),
                 ("index000.bin", 0, "index000.bin cannot be read, and nothing is found without it"))
        for name, page, told in cases:
            places = [(self.folder / "busy", self.folder / "busy" / name, page)]
            in_the_midst = (name, page) == cases[1][:2]
            if in_the_midst:
                places.append((self.folder / "busy.img", self.folder / "busy.img", place_in_image(self.folder / "busy", name, page)))
            for card, file, begin in places:
                with self.subTest(card=card.name, name=name, page=page), unreadable(file, begin, begin + 4096):
                    self.open_if_it_is_a_card(card)
                    wanted = tool_list(card)
                    if wanted is None:
                        self.assertIsNone(self.browser.run("list"))
                    else:  # what was read while playing may be more
                        self.assertEqual(self.browser.run("({...list, unread: 0})"), {**wanted, "unread": 0})
                    if in_the_midst:  # about the tenth second
                        self.go("list.start + 8", "player.moment < list.start + 9")
                        self.play("player.moment > list.start + 13")
                    self.assertTrue(self.browser.run("byId('message').hidden"))
                    self.assertRegex(self.browser.run("byId('notice').textContent"), told)
        with unreadable(self.folder / "busy" / cases[1][0], cases[1][1], cases[1][1] + 4096):
            self.open(self.folder / "busy")
            begin = self.browser.run("list.sections[0].start")
            own, tools = self.save(self.folder / "busy", begin, begin + 19, status=1)
            self.assertEqual([frame_sums(clip) for clip in own], [frame_sums(clip) for clip in tools])

    def test_a_card_that_answers_no_more_has_no_bad_pages(self):
        with unreadable(self.folder / "busy.img", place := place_in_image(self.folder / "busy", "hi000000.mp4", 4096), place + 1, "gone"):
            self.open(self.folder / "busy.img", "byId('notice').textContent.includes('Pick it again')")

    # ---- playing

    def test_seeks_exactly_and_steps_by_picture(self):
        for card, rest, anew, sought, keys in (("busy", 250, False, (0, 3, 137, 249, 26, 25, 24), "..,,,"),
                                               ("odd", 222, True, (62, 105, 180, 110, 111, 0), ""),  # key frames within a second
                                               ("b_frames", 500, False, (100,), ".......")):
            with self.subTest(card=card):
                pictures = small_pictures(self.exported(self.folder / card, "0:1"))[:rest]  # then they begin again
                self.open(self.folder / card)
                for wanted in sought:
                    if anew:
                        self.browser.run("player.close()")  # into media that has had nothing yet
                    self.browser.run(f"goTo(list.start + {(wanted + .5) / 25})")
                    self.shows(pictures, wanted)
                    self.assertIs(self.browser.run("byId('message').hidden || byId('message').textContent"), True)
                for key in keys:
                    wanted += 1 if key == "." else -1
                    self.browser.key(key)
                    self.shows(pictures, wanted)

    def test_every_picture_played_is_the_one_recorded_then(self):
        pictures = small_pictures(self.exported(self.folder / "busy", "0:1"))[:250]
        self.open(self.folder / "busy")
        self.browser.run("goTo(list.start + 2); player.setRate(.25); true")
        self.browser.wait("!player.loading && !byId('video').seeking && byId('video').readyState >= 3")
        self.browser.run("window.seen = []; (function look(now, frame) { if (frame && seen.length < 30) {"
                         "const real = player.pictures[player.indexAt(frame.mediaTime + .001)][1]; const small = createImageBitmap(byId('video'));"
                         "seen.push({ index: Math.round((real - list.start) * 25), small }); } byId('video').requestVideoFrameCallback(look); })(); player.play(); true")
        self.browser.wait("seen.length === 30")
        self.browser.run("player.pause(); player.setRate(1); true")
        for i in range(30):
            wanted = self.browser.run(f"seen[{i}].small.then(small => (window.still = small, seen[{i}].index))")
            shown = self.grey("still")
            self.assertEqual(nearest(pictures, shown), wanted)

    def test_plays_over_the_borders_of_sections_and_files_at_any_speed(self):
        for card, begin, end in (("busy", "list.sections[1].end - 1.5", "list.sections[2].start + 1.5"),
                                 ("border", "list.sections[0].end - 1", "list.sections[1].start + 2")):
            with self.subTest(card=card):
                self.open(self.folder / card)
                self.go(begin, f"player.moment >= {begin} - .5")
                self.browser.key(" ")
                self.browser.wait(f"player.moment > {end}")
                self.browser.key(" ")
                self.assertTrue(self.browser.run("player.paused"))
        for rate in (0.25, 4, 16, 1):
            self.browser.run(f"player.setRate({rate})")
            self.browser.wait("!player.loading")
            self.go("list.start + 2", "player.moment < list.start + 4")
            self.play("player.moment > list.start + " + ("2.3" if rate < 1 else "5"))

    def test_sound_is_there(self):
        self.open(self.folder / "busy")
        for section in (0, 1, 2):
            self.go(f"list.sections[{section}].start + 1", "byId('video').readyState >= 2")
            self.play(f"player.moment > list.sections[{section}].start + 2 && byId('video').webkitAudioDecodedByteCount > 1000")

    # ---- saving

    def test_a_saved_clip_is_the_one_that_the_tool_exports(self):
        cases = (("busy", "list.sections[0].start + 3", "list.sections[0].start + 8"), ("busy", "list.start", "list.end"),
                 ("b_frames", "list.start + 5", "list.start + 13"), ("h265", "list.start + 5", "list.start + 13"))
        for card, begin, end in cases:
            with self.subTest(card=card, begin=begin):
                self.open(self.folder / card, "list !== null && !player.loading")
                own, tools = self.save(self.folder / card, self.browser.run(begin), self.browser.run(end))
                self.assertEqual(len(own), len(tools))
                for mine, other in zip(own, tools):
                    self.assertEqual(frame_sums(mine), frame_sums(other))
                    if card == "h265":
                        self.assertIn(b"hvc1", mine.read_bytes())

    def test_what_the_browser_does_not_decode_is_said_and_can_be_saved(self):
        card = self.folder / "mixed"  # H.264, H.265, H.264
        refusals = {  # in a browser that decodes H.265, too
            "refuses": "MediaSource.isTypeSupported = t => !t.includes('hvc1')",
            "breaks its word": "MediaSource.isTypeSupported = () => true; for (const [of, name] of [[MediaSource, 'addSourceBuffer'], [SourceBuffer, 'changeType']])"
                               "{ const own = of.prototype[name]; of.prototype[name] = function(t) {"
                               "if (t.includes('hvc1')) throw new DOMException('no', 'NotSupportedError'); return own.call(this, t); }; }"}
        for name, script in refusals.items():
            with self.subTest(name):
                self.browser.open(PAGE)
                self.browser.run(script + "; true")
                self.open(card)
                self.go("list.sections[1].start + 3", "byId('message').textContent.startsWith('This browser does not decode H.265')")
                self.assertEqual(self.browser.run("byId('video').videoWidth"), 0, "no older picture stays")
                begin = self.browser.run("list.sections[1].start")
                own, tools = self.save(card, begin, begin + 5)
                self.assertEqual(frame_sums(own[0]), frame_sums(tools[0]))
                self.go("list.sections[0].end - 2", "byId('video').readyState >= 2 && byId('message').hidden")
                self.browser.run("player.play()")
                self.browser.wait("byId('video').ended && !byId('message').hidden")
                self.assertGreater(self.browser.run("player.moment - list.sections[0].end"), 0, "played to its end")
                self.go("list.sections[2].start + 1", "byId('video').readyState >= 2 && byId('message').hidden")
        self.browser.run("window.MediaSource = undefined; goTo(list.start)")
        self.browser.wait("byId('message').textContent.startsWith('This browser cannot play recordings')")
        self.browser.open(PAGE)

    def test_the_end_of_what_was_left_does_not_end_what_plays_now(self):
        self.open(self.folder / "busy")
        self.assertEqual(self.browser.run("(async () => { player.buffers.video.abort(); player.buffers.video.remove(0, .001);"
                                          "const end = player.finish(player.session); ++player.session; await end; return player.media.readyState; })()"), "open")
        self.browser.run("player.close()")

    def test_the_sound_of_a_saved_clip_is_that_of_the_card(self):
        card = self.folder / "busy"
        self.open(card)
        begin = self.browser.run("list.sections[0].start")
        own, _ = self.save(card, begin, begin + 19)
        decoded = run("ffmpeg", "-v", "error", "-i", own[0], "-map", "0:a", "-f", "s16le", "-")
        exact = self.folder / "exact.mkv"  # G.711 as it is
        run(TOOL, "export", card, "--section", "0:1", exact, "--force")
        wanted = run("ffmpeg", "-v", "error", "-i", exact, "-map", "0:a", "-f", "s16le", "-")
        self.assertGreater(len(decoded), 18 * 16000)
        at = decoded.find(wanted[:8000])
        self.assertGreaterEqual(at, 0)
        length = min(len(wanted), len(decoded) - at)
        self.assertEqual(decoded[at:at + length], wanted[:length])

    def try_every_way_out(self, page, address):
        """Whatever a script in the page tried, if one ever got there, itself or from a worker; returns the network's log."""
        browser = Browser(page)
        worker = f"for (const f of [() => fetch('http://{address}/worker'), () => importScripts('http://{address}/'), () => new WebSocket('ws://{address}/')])" \
                 "{ try { f().catch(() => {}); } catch {} } setTimeout(() => postMessage(1), 300);"
        try:
            browser.run(f"""(async () => {{
                const at = 'http://{address}/', add = (tag, set) => document.body.append(Object.assign(document.createElement(tag), set));
                const ways = [() => fetch(at + 'page', {{ mode: 'no-cors' }}), () => {{ const x = new XMLHttpRequest(); x.open('GET', at); x.send(); }},
                    () => new WebSocket('ws://{address}/'), () => new EventSource(at), () => navigator.sendBeacon(at, 'x'), () => import(at),
                    () => add('img', {{ src: at }}), () => add('video', {{ src: at }}), () => add('iframe', {{ src: at }}), () => add('script', {{ src: at }}),
                    () => add('link', {{ rel: 'stylesheet', href: at }}), () => add('link', {{ rel: 'prefetch', href: at }}),
                    () => add('style', {{ textContent: `@import "${{at}}"; body {{ background: url(${{at}}) }}` }}),
                    () => {{ const f = document.createElement('form'); f.action = at; f.method = 'post'; document.body.append(f); f.submit(); }}];
                const open = {json.dumps(page != PAGE)}; // without the policy the form would lead away from the page
                for (const way of open ? ways.slice(0, -1) : ways) {{ try {{ const done = way(); if (done && done.catch) done.catch(() => {{}}); }} catch {{}} }}
                await new Promise(done => {{
                    const w = new Worker(URL.createObjectURL(new Blob([{json.dumps(worker)}]))); w.onmessage = done; }});
            }})()""")
            if page == PAGE:
                browser.wait("violations.length >= 10")
        finally:
            asked = browser.close()
        return asked

    def test_no_way_leads_out(self):
        listening = socket.create_server(("127.0.0.1", 0))
        self.addCleanup(listening.close)
        address = "127.0.0.1:%d" % listening.getsockname()[1]
        asked = self.try_every_way_out(PAGE, address)
        self.assertEqual([a for a in asked if "://" in a.split(" ")[0]], [], "a browser may connect ahead of what the policy then stops")
        listening.setblocking(False)
        with self.assertRaises(BlockingIOError):
            while True:
                connection = listening.accept()[0]
                connection.settimeout(60)
                with connection:
                    self.assertEqual(connection.recv(1000), b"")

    def test_the_log_would_show_what_page_and_worker_ask_for(self):
        open_page = self.folder / "open.html"  # without the policy
        text, policies = re.subn('<meta http-equiv="Content-Security-Policy"[^>]*>', "", (ROOT / "viewer" / "viewer.html").read_text())
        self.assertEqual(policies, 1)
        open_page.write_text(text)
        nobody = "127.0.0.1:9"
        asked = self.try_every_way_out(open_page.as_uri(), nobody)
        self.assertLessEqual({f"http://{nobody}/page", f"http://{nobody}/worker", f"ws://{nobody}/"}, set(asked))


class Served(CardTest):
    """recordcard view: the same page and the card's bytes from this computer."""
    cards = ("busy", "busy.img", "border")

    def setUp(self):
        self.card = self.folder / "busy.img"
        self.serve(self.card)
        self.addCleanup(self.stop)

    def serve(self, card):
        self.process = subprocess.Popen([TOOL, "view", "--no-open", card], stdout=subprocess.PIPE, text=True)
        self.address = self.process.stdout.readline().strip()
        self.server, self.root = re.fullmatch(r"http://([^/]*)(/[0-9a-f]{32}/)", self.address).groups()

    def stop(self):
        self.process.terminate()
        self.assertEqual(self.process.wait(20), 0)
        self.process.stdout.close()

    def get(self, path, method="GET", **headers):
        connection = http.client.HTTPConnection(self.server, timeout=60)
        connection.request(method, path, headers=headers)
        answer = connection.getresponse()
        body = answer.read()
        connection.close()
        return answer, body

    def test_answers_programs(self):
        card = tool_list(self.card)
        self.assertEqual(json.loads(self.get(self.root + "list.json")[1]), card)
        begin = card["sections"][0]["start"] + 3
        answer, body = self.get(f"{self.root}clip.mp4?from={begin}&to={begin + 4}")
        self.assertEqual((answer.status, answer.headers["X-Parts"], answer.headers["Content-Type"]), (200, "1", "video/mp4"))
        (self.folder / "served.mp4").write_bytes(body)
        run(TOOL, "export", self.card, "--utc", "--from", time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime(begin)), "--to",
            time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime(begin + 4)), self.folder / "tool.mp4")
        self.assertEqual(frame_sums(self.folder / "served.mp4"), frame_sums(self.folder / "tool.mp4"))
        answer, body = self.get(self.root + "file/index000.bin", Range="bytes=1024-1071")
        self.assertEqual((answer.status, body), (206, (self.folder / "busy" / "index000.bin").read_bytes()[1024:1072]))

    def test_ends_also_when_it_is_stopped_at_once(self):
        for _ in range(20):
            self.stop()
            self.serve(self.card)

    @contextlib.contextmanager
    def page_of(self, card):
        self.stop()
        self.serve(card)
        browser = Browser(self.address)
        try:
            browser.wait("list !== null && !player.loading")
            yield browser
            self.assertEqual(browser.run("violations.concat(faults)"), [])
        finally:
            self.asked = browser.close()

    def test_a_place_that_cannot_be_read_is_told_and_costs_nothing_else(self):
        card, name = self.folder / "busy", "hi000000.mp4"
        end = tool_list(card)["sections"][0]["bytes"]
        page = end // 4096 * 4096
        with unreadable(card / name, page, page + 4096):
            with self.page_of(card) as browser:
                browser.wait("byId('video').readyState >= 2")
                listed, notice = browser.run("list"), browser.run("byId('notice').textContent")
            wanted = tool_list(card)
            self.assertEqual({**listed, "unread": 0}, {**wanted, "unread": 0}, "playing reads more")
            self.assertEqual(json.loads(self.get(self.root + "list.json")[1]), wanted)
            self.assertEqual(listed["unread"][0]["name"], name)
            self.assertRegex(notice, f"of {name} cannot be read: pictures there are left out or damaged[.]$")
            answer, body = self.get(f"{self.root}file/{name}", Range=f"bytes={page - 8192}-{page - 4097}")
            self.assertEqual((answer.status, len(body)), (206, 4096))
            for more in ({}, {"Cache-Control": "no-cache"}):
                answer, body = self.get(f"{self.root}file/{name}", Range=f"bytes={page}-{page + 4095}", **more)
                self.assertEqual((answer.status, b"cannot" in body), (500, True))

    def test_a_file_to_which_no_table_leads_is_told(self):
        with open(self.card, "rb") as image:
            boot = image.read(512)
        table, size = 512 * int.from_bytes(boot[14:16], "little"), 512 * int.from_bytes(boot[36:40], "little")
        cluster = 2 + (place_in_image(self.folder / "busy", "hi000000.mp4", 4096) - table - 2 * size) // (512 * boot[13])
        page = cluster * 4 // 4096 + 1  # of a table, well inside the file's chain
        with unreadable(self.card, table + page * 4096, table + size + (page + 1) * 4096):  # that page in both
            with self.page_of(self.card) as browser:
                self.assertEqual(browser.run("list"), tool_list(self.card))
                self.assertRegex(browser.run("byId('notice').textContent"), "hi000000.mp4 cannot be read: 4 sections from 2026-03-01 .* cannot be shown[.]")

    def test_a_card_that_is_taken_out_is_asked_for_again(self):
        card = self.folder / "border"
        with self.page_of(card) as browser:
            card.rename(self.folder / "gone")
            browser.run("goTo(list.start + 1)")
            browser.wait("byId('message').textContent.includes('Pick it again')")
        (self.folder / "gone").rename(card)

    def test_refuses_all_else(self):
        other = self.root[:-2] + ("0" if self.root[-2] != "0" else "1") + "/"
        for path in ("/", other, other + "list.json", self.root + "file/..%2Fbusy.img", self.root + "file/passwd", self.root + "nothing",
                     self.root + "clip.mp4?from=1&to=2"):
            self.assertEqual(self.get(path)[0].status, 404, path)
        for query in ("", "?from=5", "?from=5&to=4", "?from=x&to=9", "?from=1&to=99999999999"):
            self.assertEqual(self.get(self.root + "clip.mp4" + query)[0].status, 400, query)
        self.assertEqual(self.get(self.root, Host="card.example")[0].status, 404, "another name for this address")
        for method in ("POST", "PUT", "DELETE"):
            self.assertEqual(self.get(self.root + "list.json", method)[0].status, 404, method)
        listen = subprocess.run([TOOL, "view", self.card, "--listen", "0.0.0.0"], stderr=subprocess.PIPE, text=True)
        self.assertEqual(listen.returncode, 2)
        self.assertIn("would need a password and an encrypted connection", listen.stderr)
        self.assertIn("ssh -L PORT:127.0.0.1:PORT", listen.stderr)
        self.assertEqual(subprocess.run([TOOL, "view", self.folder / "busy" / "index000.bin"], stderr=subprocess.PIPE).returncode, 3)

    def test_plays_in_a_browser_that_asks_nobody_else(self):
        with self.page_of(self.card) as browser:
            browser.wait("byId('video').readyState >= 2")
            self.assertEqual(browser.run("list"), tool_list(self.card))
            self.assertEqual(browser.run("byId('video').videoWidth"), 480)
        self.assertIn(self.address + "file/hi000000.mp4", self.asked, "the worker's, too")
        server = "http://" + self.server
        self.assertEqual([a for a in self.asked if not a.removeprefix("name of ").removeprefix("connection to ").startswith(server)], [])


class Page(unittest.TestCase):
    def test_is_what_its_sources_make(self):
        if not shutil.which("em++"):
            self.skipTest("no emscripten here")
        with tempfile.TemporaryDirectory() as folder:
            made = pathlib.Path(folder) / "viewer.html"
            run(ROOT / "viewer" / "build", made)
            self.assertEqual(made.read_bytes(), (ROOT / "viewer" / "viewer.html").read_bytes(), "run viewer/build and commit the page")

    def test_is_small_and_cannot_connect(self):
        page = (ROOT / "viewer" / "viewer.html").read_text()
        self.assertLess(len(page), 3 << 19)
        for way_out in ("RTCPeerConnection", "WebSocket", "EventSource", "sendBeacon", "connect-src", "preconnect", "dns-prefetch", "https:", "importScripts"):
            self.assertNotIn(way_out, page)


if __name__ == "__main__":
    unittest.main(verbosity=2)
