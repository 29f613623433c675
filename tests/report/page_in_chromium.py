"""Loads a report page in headless chromium from file:// and prints what a reader
would see, one fact a line, for the calling test to compare: the runs in the
matrix, the crash signatures, the images in the page, whether it fits 390 pixels,
the links reached with the Tab key, console errors and requests that left the page;
then at 390 and 1280 pixels ("<width> px: " lines): what a click on a failing cell
and Enter on a run's device show, whether the device column stays when the matrix
scrolls sideways, the colours of cells, time-line bars and headline by verdict, and
whether print shows every run's details.

    page_in_chromium.py PAGE.html SCREENSHOT_STEM    (writes STEM-390px.png, STEM-1280px.png)

It speaks the DevTools protocol over a pipe (--remote-debugging-pipe: commands on
fd 3, answers on fd 4, each a JSON text ended by NUL): no port, no extra package.
"""
import base64
import json
import os
import shutil
import subprocess
import sys
import tempfile


class Browser:
    def __init__(self, profile):
        to_child, self.commands = os.pipe()
        self.answers, from_child = os.pipe()
        binary = shutil.which("chromium") or shutil.which("chromium-browser")
        self.process = subprocess.Popen(
            [binary, "--headless", "--no-sandbox", "--disable-gpu", "--remote-debugging-pipe",
             "--user-data-dir=" + profile, "--no-first-run", "--disable-extensions",
             "--disable-background-networking", "--disable-component-update", "about:blank"],
            pass_fds=(3, 4), stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL, preexec_fn=lambda: self.child_fds(to_child, from_child))
        os.close(to_child)
        os.close(from_child)
        self.buffer = b""
        self.next_id = 0
        self.events = []
        self.session = None

    @staticmethod
    def child_fds(commands, answers):
        # Through high numbers first, so that neither end overwrites the other.
        high = (os.dup2(commands, 100), os.dup2(answers, 101))
        os.dup2(high[0], 3)
        os.dup2(high[1], 4)

    def read(self):
        while b"\0" not in self.buffer:
            chunk = os.read(self.answers, 1 << 16)
            if not chunk:
                raise RuntimeError("chromium closed its pipe")
            self.buffer += chunk
        message, self.buffer = self.buffer.split(b"\0", 1)
        return json.loads(message)

    def call(self, method, **params):
        self.next_id += 1
        message = {"id": self.next_id, "method": method, "params": params}
        if self.session and not method.startswith("Target."):
            message["sessionId"] = self.session
        os.write(self.commands, json.dumps(message).encode() + b"\0")
        while True:
            answer = self.read()
            if answer.get("id") == self.next_id:
                if "error" in answer:
                    raise RuntimeError("%s: %s" % (method, answer["error"]))
                return answer.get("result", {})
            self.events.append(answer)

    def wait_for(self, method):
        while not any(e.get("method") == method for e in self.events):
            self.events.append(self.read())

    def evaluate(self, expression):
        return self.call("Runtime.evaluate", expression=expression, returnByValue=True)["result"].get("value")

    def close(self):
        self.process.kill()
        self.process.wait()


    def load(self, url, width, height):
        self.call("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1,
                  mobile=width < 600)
        self.events = [e for e in self.events if e.get("method") != "Page.loadEventFired"]
        self.call("Page.navigate", url=url)
        self.wait_for("Page.loadEventFired")

    def key(self, name, code, text=None):
        for kind in ("keyDown", "keyUp"):
            params = {"type": kind, "key": name, "code": name, "windowsVirtualKeyCode": code}
            if text and kind == "keyDown":
                params["text"] = text
            self.call("Input.dispatchKeyEvent", **params)

    def click(self, selector):
        """A real mouse click in the middle of the first element |selector| finds."""
        box = self.evaluate("(() => { const e = document.querySelector(%s); if (!e) return null;"
                            " e.scrollIntoView({block: 'center',"
                            " inline: 'center'}); const r = e.getBoundingClientRect();"
                            " return [r.x + r.width / 2, r.y + r.height / 2]; })()" % json.dumps(selector))
        if box is None:
            return False
        for kind in ("mousePressed", "mouseReleased"):
            self.call("Input.dispatchMouseEvent", type=kind, x=box[0], y=box[1], button="left", clickCount=1)
        self.settle()
        return True

    def settle(self):
        """Lets the page's events run (a navigation to an anchor, its hashchange)."""
        self.call("Runtime.evaluate", expression="new Promise(r => setTimeout(r, 100))", awaitPromise=True)


# What the element the address targets shows: whether it is on screen, and its text.
SHOWN_TARGET = ("(() => { const t = document.querySelector(':target'); if (!t) return 'no target';"
                " const r = t.getBoundingClientRect(); const seen = t.checkVisibility() && r.height > 0"
                " && r.bottom > 0 && r.top < innerHeight;"
                " return (seen ? 'on screen: ' : 'hidden: ') + t.innerText.replace(/\\s+/g, ' ').trim(); })()")

# The matrix scrolled to its right end: does the device cell keep its place?
STICKY = ("(() => { const box = document.querySelector('#matrix').parentElement;"
          " const dev = document.querySelector('#matrix tbody th.dev'); const last = dev.parentElement.lastElementChild;"
          " const before = [dev.getBoundingClientRect().left, last.getBoundingClientRect().left];"
          " box.scrollLeft = box.scrollWidth; const after = [dev.getBoundingClientRect().left,"
          " last.getBoundingClientRect().left]; box.scrollLeft = 0;"
          " return 'matrix scrolls sideways: ' + (after[1] < before[1] ? 'yes' : 'no') +"
          " ', device column stays: ' + (Math.abs(after[0] - before[0]) < 1 ? 'yes' : 'no'); })()")

# Each verdict's colour, as computed, on cells, time-line bars and the headline.
COLOURS = ("(() => { const seen = (sel, prop) => { const out = {}; document.querySelectorAll(sel).forEach(e =>"
           " { const v = [...e.classList].find(c => c.startsWith('v-')); if (v) out[v.slice(2)] ="
           " getComputedStyle(e)[prop]; }); return Object.keys(out).sort().map(k => k + ' ' + out[k]).join(', '); };"
           " return 'cells: ' + seen('#matrix td.v', 'backgroundColor') + '; bars: ' +"
           " seen('.timeline rect', 'fill') + '; headline: ' + seen('h1 .badge', 'backgroundColor'); })()")

# With print's style, is the content of every run's details shown?
PRINTED = ("[...document.querySelectorAll('details.run')].every(d => [...d.children]"
           ".filter(c => c.tagName !== 'SUMMARY').every(c => c.checkVisibility()))")


def at_width(browser, url, width, height, screenshot):
    lines = []
    say = lambda fact, value: lines.append("%d px: %s: %s" % (width, fact, value))
    browser.load(url, width, height)
    shot = browser.call("Page.captureScreenshot", format="png")["data"]
    open("%s-%dpx.png" % (screenshot, width), "wb").write(base64.b64decode(shot))
    say("the matrix", browser.evaluate(STICKY))
    say("colours by verdict", browser.evaluate(COLOURS))
    say("closed details shown before a click", browser.evaluate(
        "[...document.querySelectorAll('details.run')].some(d => d.open)"))
    if browser.click("#matrix td.v:not(.v-pass) a"):
        say("a failing cell's click shows", browser.evaluate(SHOWN_TARGET))
    browser.load(url, width, height)
    for _ in range(200):
        browser.key("Tab", 9)
        if browser.evaluate("document.activeElement.matches('#matrix tbody th.dev a')"):
            break
    browser.key("Enter", 13, "\r")
    browser.settle()
    say("Enter on the first run's device shows", browser.evaluate(SHOWN_TARGET)[:60] + " ...")
    say("the run's log shown", browser.evaluate(
        "(() => { const p = document.querySelector(':target [id$=-log]'); return p.checkVisibility() &&"
        " p.innerText.trim().split('\\n').pop(); })()"))
    browser.load(url, width, height)
    browser.call("Emulation.setEmulatedMedia", media="print")
    say("print shows every run's details", browser.evaluate(PRINTED))
    browser.call("Emulation.setEmulatedMedia", media="")
    return lines


def main():
    page, screenshot = os.path.abspath(sys.argv[1]), sys.argv[2]
    profile = tempfile.mkdtemp()
    browser = Browser(profile)
    try:
        target = browser.call("Target.createTarget", url="about:blank")["targetId"]
        browser.session = browser.call("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]
        for domain in ("Page", "Runtime", "Log", "Network"):
            browser.call(domain + ".enable")
        browser.load("file://" + page, 390, 844)
        facts = {
            "runs": browser.evaluate("document.querySelectorAll('tr[data-run]').length"),
            "failed runs": browser.evaluate("document.querySelectorAll('tr[data-verdict=fail], tr[data-verdict=error], tr[data-verdict=aborted]').length"),
            "signatures": browser.evaluate("document.querySelectorAll('.sig').length"),
            "heading": browser.evaluate("document.querySelector('h1').textContent"),
            "images": browser.evaluate("document.querySelectorAll('img, iframe, object, embed').length"),
            "script filter": browser.evaluate("document.getElementById('shown').textContent"),
            "fits 390 px": browser.evaluate("document.documentElement.scrollWidth <= 390"),
            "smallest font px": browser.evaluate(
                "Math.min(...[...document.querySelectorAll('body *')].filter(e => e.childNodes.length"
                " && [...e.childNodes].some(n => n.nodeType === 3 && n.textContent.trim()))"
                ".map(e => parseFloat(getComputedStyle(e).fontSize)))"),
        }
        # Links inside a run's closed details are reached once it is opened.
        links = browser.evaluate("[...document.querySelectorAll('a[href]')].filter(a => a.checkVisibility()).length")
        browser.evaluate("[...document.querySelectorAll('a[href]')].filter(a => a.checkVisibility())"
                         ".forEach((a, i) => a.dataset.i = i)")
        reached = set()
        for _ in range(links * 3 + 20):
            browser.key("Tab", 9)
            index = browser.evaluate("document.activeElement && document.activeElement.dataset"
                                     " ? document.activeElement.dataset.i : undefined")
            if index is not None:
                reached.add(int(index))
        facts["links reached by Tab"] = "%d of %d" % (len(reached), links)
        widths = [line for size in ((390, 844), (1280, 800))
                  for line in at_width(browser, "file://" + page, *size, screenshot)]
        errors = [e["params"]["entry"]["text"] for e in browser.events
                  if e.get("method") == "Log.entryAdded" and e["params"]["entry"]["level"] == "error"]
        errors += [str(e["params"]["exceptionDetails"].get("text")) for e in browser.events
                   if e.get("method") == "Runtime.exceptionThrown"]
        errors += [str(e["params"].get("args")) for e in browser.events
                   if e.get("method") == "Runtime.consoleAPICalled" and e["params"]["type"] == "error"]
        requests = [e["params"]["request"]["url"] for e in browser.events
                    if e.get("method") == "Network.requestWillBeSent"]
        facts["console errors"] = errors
        facts["requests leaving the page"] = [u for u in requests if not u.startswith("file://")]
        for key, value in facts.items():
            print("%s: %s" % (key, value))
        print("\n".join(widths))
    finally:
        browser.close()
        shutil.rmtree(profile, ignore_errors=True)


if __name__ == "__main__":
    main()
