# The cleaning rule, a table of input -> printed, against the commands that print a
# plan's words: check-plan and set-test (a plan's keys and names). Nothing a plan
# holds reaches a terminal as a control character, a line break or a bidirectional
# control. (The report's formats and the summary print an archive's names and lines
# of each kind: the golden outputs, whose archive 20261124_060009 holds them.)
source "$(dirname "$0")/../e2e/lib.sh"
mkdir -p /tmp/clean && cd /tmp/clean
start_service
ctl boot-completed >/dev/null

/usr/bin/python3 - "$OSTRELCTL" "$(dirname "$0")" <<'PY'
import json, subprocess, sys
sys.path.insert(0, sys.argv[2])
from hostile_archives import case
ostrelctl = sys.argv[1]
R = "\ufffd"
# input -> printed
TABLE = [
    ("\x1b[31mred", R + "[31mred"),                 # ESC: a colour
    ("\x1b]52;c;aGk=\x07clip", R + "]52;c;aGk=" + R + "clip"),  # OSC 52: the clipboard
    ("c1\u009bJ", "c1" + R + "J"),                  # C1 CSI
    ("line\u2028sep", "line" + R + "sep"),          # line separator
    ("rtl\u202eoverride", "rtl" + R + "override"),  # right-to-left override
    ("iso\u2066late", "iso" + R + "late"),          # bidirectional isolate
    ("cr\rnl\nend", "cr" + R + "nl" + R + "end"),   # line ends
    ("\u00fcber \u65e5\u672c", "\u00fcber \u65e5\u672c"),  # printable: kept
]
failures = 0

def check(what, text, printed, raw):
    global failures
    bad = [c for c in text if (ord(c) < 0x20 and c != "\n") or 0x7f <= ord(c) <= 0x9f
           or c in "\u2028\u2029\u061c\u200e\u200f" or 0x202a <= ord(c) <= 0x202e or 0x2066 <= ord(c) <= 0x2069]
    ok = printed in text and not bad
    print(("ok: " if ok else "FAIL: ") + what + ": " + ascii(raw) + " -> " + ascii(printed)
          + ("" if ok else " (printed: " + ascii(text[:300]) + ")"))
    failures += 0 if ok else 1

def run(*args, stdin=None):
    p = subprocess.run([ostrelctl, *args], input=stdin, capture_output=True)
    return (p.stdout + p.stderr).decode("utf-8")

for raw, printed in TABLE:
    # A plan whose test case has an unknown key and a shared name of this text.
    tc = dict(case(raw, target=1), **{raw: 1})
    plan = json.dumps({"not_set": False, "current_state": 1, "run_start": False, "run_finished": False,
                       "testcases": [tc, dict(tc, select=False)]}).encode()
    check("check-plan", run("check-plan", "-", stdin=plan), printed, raw)
    check("set-test (refused)", run("set-test", "-", stdin=plan), printed, raw)
sys.exit(1 if failures else 0)
PY
status=$?
stop_service
exit $status
