# The cleaning rule, a table of input -> printed, against every command that
# prints words from outside: check-plan and set-test (a plan's keys and names),
# report in every format and the summary (an archive's names and lines), retry
# (the names it reruns). Nothing a device or a plan holds reaches a terminal as
# a control character, a line break or a bidirectional control.
source "$(dirname "$0")/../e2e/lib.sh"
mkdir -p /tmp/clean && cd /tmp/clean
start_service
ctl boot-completed >/dev/null

/usr/bin/python3 - "$OSTRELCTL" "$(dirname "$0")" <<'PY'
import json, subprocess, sys
sys.path.insert(0, sys.argv[2])
from hostile_archives import archive, case, plan_of
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

for i, (raw, printed) in enumerate(TABLE):
    # A plan whose test case has an unknown key and a shared name of this text.
    tc = dict(case(raw, target=1), **{raw: 1})
    plan = json.dumps({"not_set": False, "current_state": 1, "run_start": False, "run_finished": False,
                       "testcases": [tc, dict(tc, select=False)]}).encode()
    check("check-plan", run("check-plan", "-", stdin=plan), printed, raw)
    check("set-test (refused)", run("set-test", "-", stdin=plan), printed, raw)
    name = "QAV2026112%d_000000.zip" % i
    archive(name, plan_of([case(raw, "boots", 0, 1)]), history=(raw + "\n").encode())
    for fmt in ("text", "json", "junit"):
        out = run("report", "--format", fmt, name)
        check("report --format " + fmt, json.dumps(json.loads(out), ensure_ascii=False) if fmt == "json" else out,
              printed, raw)
check("report over a folder (the summary)", run("report", "."), TABLE[0][1], TABLE[0][0])
sys.exit(1 if failures else 0)
PY
status=$?
stop_service
exit $status
