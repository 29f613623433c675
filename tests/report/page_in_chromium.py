"""Loads a report page in headless chromium from file:// and prints what a reader
would see, one fact a line, for the calling test to compare: the runs in the
matrix, the crash signatures, the images in the page, whether it fits 390 pixels,
the links reached with the Tab key, console errors and requests that left the page.

    page_in_chromium.py PAGE.html SCREENSHOT.png

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


def main():
    page, screenshot = os.path.abspath(sys.argv[1]), sys.argv[2]
    profile = tempfile.mkdtemp()
    browser = Browser(profile)
    try:
        target = browser.call("Target.createTarget", url="about:blank")["targetId"]
        browser.session = browser.call("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]
        for domain in ("Page", "Runtime", "Log", "Network"):
            browser.call(domain + ".enable")
        browser.call("Emulation.setDeviceMetricsOverride", width=390, height=844, deviceScaleFactor=1,
                     mobile=True)
        browser.call("Page.navigate", url="file://" + page)
        browser.wait_for("Page.loadEventFired")
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
        links = browser.evaluate("document.querySelectorAll('a[href]').length")
        browser.evaluate("[...document.querySelectorAll('a[href]')].forEach((a, i) => a.dataset.i = i)")
        reached = set()
        for _ in range(links * 3 + 20):
            for kind in ("keyDown", "keyUp"):
                browser.call("Input.dispatchKeyEvent", type=kind, key="Tab", code="Tab",
                             windowsVirtualKeyCode=9)
            index = browser.evaluate("document.activeElement && document.activeElement.dataset"
                                     " ? document.activeElement.dataset.i : undefined")
            if index is not None:
                reached.add(int(index))
        facts["links reached by Tab"] = "%d of %d" % (len(reached), links)
        shot = browser.call("Page.captureScreenshot", format="png")["data"]
        open(screenshot, "wb").write(base64.b64decode(shot))
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
    finally:
        browser.close()
        shutil.rmtree(profile, ignore_errors=True)


if __name__ == "__main__":
    main()
