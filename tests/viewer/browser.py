"""A headless Chromium, driven over a pipe: no port, no package.  One page; every wait has a bound."""
import itertools
import json
import os
import pathlib
import shutil
import subprocess
import tempfile
import time

FLAGS = ["--headless=new", "--remote-debugging-pipe", "--no-sandbox", "--disable-gpu", "--no-first-run", "--disable-quic",
         "--disable-background-networking", "--disable-component-update", "--disable-sync", "--disable-extensions",
         "--autoplay-policy=no-user-gesture-required", "--mute-audio", "--disable-dev-shm-usage"]


class Browser:
    def __init__(self, page, width=1280, height=1000):
        self.folder = tempfile.mkdtemp(prefix="browser-")
        to_read, to_write = os.pipe()
        from_read, from_write = os.pipe()
        command = " ".join(["exec chromium", *FLAGS, "--user-data-dir=" + self.folder, "--disk-cache-dir=" + self.folder,
                            "--log-net-log=" + self.folder + "/net.json", f"about:blank 3<&{to_read} 4>&{from_write}"])
        self.process = subprocess.Popen(["bash", "-c", command], pass_fds=[to_read, from_write], env=dict(os.environ, TZ="UTC"),
                                        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        os.close(to_read)
        os.close(from_write)
        self.out = to_write
        self.input = os.fdopen(from_read, "rb", buffering=0)
        self.buffer = b""
        self.number = 0
        self.events = []
        self.session = None
        target = next(t for t in self.call("Target.getTargets")["targetInfos"] if t["type"] == "page")
        self.session = self.call("Target.attachToTarget", targetId=target["targetId"], flatten=True)["sessionId"]
        for domain in ("Page", "Runtime", "Network", "DOM", "Log"):
            self.call(domain + ".enable")
        self.call("Browser.setDownloadBehavior", behavior="allow", downloadPath=self.folder, eventsEnabled=True)
        self.size(width, height)
        # Everything that the policy stops is noted by the page itself.
        self.call("Page.addScriptToEvaluateOnNewDocument", source="window.violations = []; addEventListener('securitypolicyviolation',"
                  "e => violations.push(e.violatedDirective + ' ' + e.blockedURI)); window.faults = [];"
                  "addEventListener('error', e => faults.push(e.message)); addEventListener('unhandledrejection', e => faults.push(String(e.reason)));")
        self.open(page)

    def open(self, address):
        self.call("Page.navigate", url=address)
        self.wait("document.readyState == 'complete' && typeof list != 'undefined'")

    def size(self, width, height, dark=False):
        self.call("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1, mobile=width < 500)
        self.call("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": "dark" if dark else "light"}])
        self.wait(f"innerWidth == {width}")  # a phone first shows all of what was wider, made smaller

    def call(self, method, **params):
        self.number += 1
        message = {"id": self.number, "method": method, "params": params}
        if self.session and not method.startswith(("Target.", "Browser.")):
            message["sessionId"] = self.session
        os.write(self.out, json.dumps(message).encode() + b"\0")
        while True:
            answer = self.read()
            if answer.get("id") == self.number:
                if "error" in answer:
                    raise AssertionError(f"{method}: {answer['error']}")
                return answer["result"]
            self.events.append(answer)

    def read(self):
        while b"\0" not in self.buffer:
            part = self.input.read(1 << 20)
            if not part:
                raise AssertionError("the browser ended")
            self.buffer += part
        message, _, self.buffer = self.buffer.partition(b"\0")
        return json.loads(message)

    def run(self, script):
        """The value of an expression, awaited."""
        result = self.call("Runtime.evaluate", expression=script, awaitPromise=True, returnByValue=True)
        if "exceptionDetails" in result:
            raise AssertionError(json.dumps(result["exceptionDetails"])[:2000])
        return result["result"].get("value")

    def wait(self, condition, seconds=60):
        end = time.monotonic() + seconds
        while True:
            try:
                value = self.run(condition)
            except AssertionError as error:
                if "ReferenceError" not in str(error):
                    raise
                value = False
            if value:
                return value
            if time.monotonic() > end:
                state = self.run("JSON.stringify({notice: notice && byId('notice').textContent, message: byId('message').textContent,"
                                 "moment: byId('moment').textContent, faults, violations, ready: byId('video').readyState,"
                                 "at: byId('video').currentTime, pictures: player.pictures.length})")
                raise AssertionError(f"not within {seconds} s: {condition}; the page: {state}")
            time.sleep(.05)

    def pick(self, selector, paths):
        node = self.call("DOM.querySelector", nodeId=self.call("DOM.getDocument")["root"]["nodeId"], selector=selector)
        self.call("DOM.setFileInputFiles", nodeId=node["nodeId"], files=[str(p) for p in paths])

    def key(self, key):
        self.run(f"dispatchEvent(new KeyboardEvent('keydown', {{key: {json.dumps(key)}, bubbles: true}})) || true")

    def box(self, selector):
        """Left, top, width and height of an element, in view."""
        return self.run(f"(e => (e.scrollIntoView({{block: 'nearest'}}), e = e.getBoundingClientRect(), [e.x, e.y, e.width, e.height]))"
                        f"(document.querySelector({json.dumps(selector)}))")

    def mouse(self, kind, x, y, **more):
        self.call("Input.dispatchMouseEvent", type=kind, x=x, y=y, **more)

    def hover(self, x, y, condition, seconds=60):
        """Moves there, and about there until the condition holds: a resting mouse may be forgotten when the page moves."""
        end = time.monotonic() + seconds
        for i in itertools.count():
            if i % 10 == 0:  # each move asks for another picture
                self.mouse("mouseMoved", x + i % 20 / 40, y)
            if self.run(condition):
                return
            assert time.monotonic() < end, f"not within {seconds} s: {condition}"
            time.sleep(.05)

    def drag(self, begin, end, steps=8, **more):
        self.mouse("mouseMoved", *begin)
        self.mouse("mousePressed", *begin, button="left", clickCount=1, **more)
        for i in range(1, steps + 1):
            self.mouse("mouseMoved", *(a + (b - a) * i / steps for a, b in zip(begin, end)), button="left", buttons=1, **more)
        self.mouse("mouseReleased", *end, button="left", clickCount=1, **more)

    def touch(self, kind, *points):
        self.call("Input.dispatchTouchEvent", type=kind, touchPoints=[{"x": x, "y": y, "id": i} for i, (x, y) in enumerate(points)])

    def downloaded(self, suffix, count=1, seconds=60):
        """What was saved and is still there, complete: so many at least."""
        end = time.monotonic() + seconds
        while len(found := sorted(pathlib.Path(self.folder).glob("*" + suffix))) < count:
            assert time.monotonic() < end, f"not saved within {seconds} s: {os.listdir(self.folder)}"
            time.sleep(.05)
        return found

    def requests(self):
        """Addresses that the page (not its worker) asked for so far, beside itself and what it made."""
        urls = [e["params"]["request"]["url"] for e in self.events if e.get("method") == "Network.requestWillBeSent"]
        return [u for u in urls if not u.startswith(("blob:", "data:", "about:", "file:"))]

    def close(self):
        """Returns what was asked of any network for a page, its workers included, in the browser's life."""
        try:
            os.write(self.out, b'{"id":0,"method":"Browser.close"}\0')
            self.process.wait(120)
            return asked_of_network(os.path.join(self.folder, "net.json"))
        finally:
            self.process.kill()
            self.process.wait()
            os.close(self.out)
            self.input.close()
            shutil.rmtree(self.folder, ignore_errors=True)


def asked_of_network(path):
    """Addresses in the log of the browser's network process: requests, names looked up, connections ahead of a request.

    Each names the site it is made for.  The browser's own services are left out: they are made for none (its updates), or
    for their own site and from no page (whether somebody is signed in).
    """
    with open(path) as file:
        log = json.load(file)
    names = {number: name for name, number in log["constants"]["logEventTypes"].items()}
    events = [(names[event["type"]], event.get("params", {})) for event in log["events"]]
    own = {what["network_isolation_key"].split()[0] for name, what in events if name == "URL_REQUEST_START_JOB"
           and what.get("initiator") == "not an origin" and what.get("request_type") == "other"}
    asked = []
    for name, what in events:
        if what.get("network_isolation_key", what.get("network_anonymization_key", "null")).split()[0] in own - {"null"}:
            continue
        if name == "URL_REQUEST_START_JOB" and what.get("network_isolation_key", "null null") != "null null":
            asked.append(what["url"])
        elif name == "HOST_RESOLVER_MANAGER_REQUEST" and not what.get("network_anonymization_key", "null").startswith("null"):
            asked.append("name of " + what["host"])
        elif name == "HTTP_STREAM_JOB_CONTROLLER" and what.get("is_preconnect"):
            asked.append("connection to " + what["url"])
    return asked
