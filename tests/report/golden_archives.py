"""The golden set: small result archives, each with the files a device hands over
beside it, one for every way a run can go that the report must tell apart.

    golden_archives.py DIR                 writes DIR/QAV<stamp>.zip (and .run.json, .db_history)
    golden_archives.py --fleet-seeds DIR   the same as seeds of the fleet fuzz target: each seed
                                           a few archives, each as 2 bytes (little-endian) of
                                           record length, the record, 3 bytes of archive
                                           length, the archive

Every byte is fixed (entry times included), so the reports of them are too.
"""
import json
import os
import sys
import zipfile

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from hostile_archives import HISTORY, LOG, PLAN, case  # noqa: E402

DEVICE = {"platform": "linux", "device_id": "5d1c0a4e3b2f49e8a7c6b5d4e3f2a1b0",
          "host_name": "bench-07", "os": "Debian GNU/Linux 12 (bookworm)", "kernel": "6.1.0-27-amd64"}
WORDS = ["kelbrun", "--testcase", "say hello", "3"]


def archive(path, cases, history=b"", log=b"kelbrun: done\n", extra=()):
    """An archive as getResult packs it; |history| None leaves the history entry out."""
    plan = json.dumps({"not_set": False, "current_state": 3, "run_start": True, "run_finished": True,
                       "testcases": cases})
    entries = [(PLAN, plan), (HISTORY, history), (LOG, log), *extra]
    with zipfile.ZipFile(path, "w", zipfile.ZIP_DEFLATED) as z:
        for name, data in entries:
            if data is not None:
                z.writestr(zipfile.ZipInfo(name, (2026, 11, 24, 6, 0, 0)), data)


def end(how):
    """An executor's end as its supervisor saw it: an exit status or a signal number."""
    if how is None:
        return None
    if isinstance(how, str):
        return {"time": "2026-11-24T05:30:00Z", "wait_status": 0, "exit": int(how.split()[1])}
    return {"time": "2026-11-24T05:30:00Z", "wait_status": how, "signal_number": how}


# A client's list as get-config gives it: a feature selected, one not, and a group
# with one member selected.
CONFIG_LIST = {"id": "default", "config": [
    {"name": "cpu_boost", "select": True, "enable-num": 3, "disable-num": 4},
    {"name": "random_hotplug", "select": False, "enable-num": 5, "disable-num": 6},
    {"name": "low_power_modes", "multi": True, "content": [
        {"name": "cpuidle_wfi", "select": True, "num": 7}, {"name": "cpuidle_retention", "select": False, "num": 8}]}]}


def record(cause, ends, boots=(), run_id=None, start="2026-11-24T05:00:00Z", finish="2026-11-24T06:00:00Z",
           device=None):
    """A record as the service hands it out; each run its own id unless given."""
    global RUNS
    RUNS += 1
    run_id = run_id or "%032x" % (0x0f5e7a91c2d34b6f8a0e1d2c3b4a0000 + RUNS)
    return json.dumps({
        "record": 1, "run_id": run_id,
        "service": {"name": "vendor.brevane.hardware.ostrel@2.0-service", "version": "2.0.4"},
        "device": device or DEVICE,
        "start": {"time": start, "boot_id": "b0", "plan_sha256": "ab" * 32},
        "configuration": {"time": "2026-11-24T04:59:00Z", "list": CONFIG_LIST,
                          "words": ["sillet", "set", "cpu=fast"], "exit_status": 0},
        "executors": [{"time": start, "boot_id": "b0", "supervisor": 100 + i, "words": WORDS,
                       "end": end(how)} for i, how in enumerate(ends)],
        "boots": [{"time": t, "boot_id": "b%d" % (i + 1), "planned": planned}
                  for i, (t, planned) in enumerate(boots)],
        "end": None if cause is None else {"time": finish, "cause": cause},
    })


HOURS_DONE = case("soak", "hours", 7200, 7200)
HOURS_SHORT = case("soak", "hours", 1800, 7200)
BOOTS_DONE = case("reboots", "boots", 2, 2)
ROUNDS = case("hello", target=3)
PLANNED = [("2026-11-24T05:10:00Z", True), ("2026-11-24T05:20:00Z", True)]

RUNS = 0
FIRST_RUN = "%032x" % (0x0f5e7a91c2d34b6f8a0e1d2c3b4a0000 + 1)

# Stamp -> (test cases, the archive's history, the record beside it or None,
# the history copy beside it or None, the executor's log).
GOLDEN = {
    # Every target reached, the executor's own exit 0, no crash line.
    "20261124_060001": ([HOURS_DONE, BOOTS_DONE, ROUNDS], b"", record("executor", ["exit 0"] * 3, PLANNED), b"", None),
    # Crash lines collected and the executor killed by SIGSEGV.
    "20261124_060002": ([HOURS_SHORT, ROUNDS], b"", record("executor", [11]),
                        b"kernel: panic at 0x7f00aa10 in driver 12\nwatchdog: bark 3\n",
                        b"kelbrun: round 1\nkelbrun: round 2\n"),
    # Aborted by a client before the executor finished its rounds.
    "20261124_060003": ([HOURS_SHORT, ROUNDS], b"", record("runAbort", [15]), b"", None),
    # A reboot no boot test asked for, in the middle of a time test case.
    "20261124_060004": ([HOURS_DONE, ROUNDS], b"", record("executor", [None, "exit 0"],
                                                          [("2026-11-24T05:15:00Z", False)]), b"", None),
    # An older build: no record beside the archive, the history inside it.
    "20261124_060005": ([HOURS_DONE, ROUNDS], b"", None, None, None),
    # A signal past SIGTERM: SIGSYS (31), and a real-time one in a second start.
    "20261124_060006": ([BOOTS_DONE, ROUNDS], b"", record("executor", [31, 36], PLANNED[:1]), b"", None),
    # Nothing selected, stored over the bus as it was.
    "20261124_060007": ([case("off", "hours", 0, 0, select=False)], b"", record("executor", ["exit 0"]),
                        b"", None),
    # Targets that cannot be reached: a size of 0, a negative one, hours that wrap.
    "20261124_060008": ([dict(case("zero", "hours", 0, 0), testcase_value=0),
                         dict(case("negative", "boots", 0, -1), testcase_value=-1),
                         dict(case("wraps", "hours", 0, -2134967296), testcase_value=600000)],
                        b"", record("executor", ["exit 0"]), b"", None),
    # Control characters and broken UTF-8 in names, lines and the log; text that
    # moves or reorders what follows (a line separator, a right-to-left override);
    # names LAVA would take for folders or for the report's own; a device name
    # longer than a table cell, in two-byte characters.
    "20261124_060009": ([case("esc\x1b[31mred\x07 tab\tcr\rnl\nend", "hours", 1, 2),
                         case("c1\u0085\u009b31m\u008d\x7fdel", "boots", 0, 1),
                         case("bidi\u202eevil\u2028line\u2066", "boots", 1, 1),
                         case("..", "boots", 1, 1), case("left_out", "boots", 1, 1)],
                        b"panic \x1b]0;title\x07 \xc2\x9b\xff\xfe broken \xe2\x82\n",
                        record("executor", [6], device=dict(DEVICE, host_name="\u00fc" * 60)), None,
                        b"kelbrun: \x1b[2J cleared\r\n"),
    # The first run packed again after a kill in getResult: the same run id, the
    # history copy gone with the first archive. Counted once in a summary.
    "20261124_060010": ([HOURS_DONE, BOOTS_DONE, ROUNDS], None,
                        record("executor", ["exit 0"] * 3, PLANNED, run_id=FIRST_RUN), None, None),
    # No history copy anywhere (none beside, none in the archive): not a pass.
    "20261124_060011": ([HOURS_DONE], None, record("executor", ["exit 0"]), None, None),
}


def fleet_seeds(directory):
    import struct
    import tempfile
    with tempfile.TemporaryDirectory() as made:
        write_all(made)
        stamps = sorted(GOLDEN)
        os.makedirs(directory, exist_ok=True)
        for first in range(0, len(stamps), 3):
            seed = b""
            for stamp in stamps[first:first + 4]:
                stem = os.path.join(made, "QAV" + stamp)
                record = open(stem + ".run.json", "rb").read() if os.path.exists(stem + ".run.json") else b""
                data = open(stem + ".zip", "rb").read()
                seed += struct.pack("<H", len(record)) + record + struct.pack("<I", len(data))[:3] + data
            open(os.path.join(directory, "seed%02d" % first), "wb").write(seed)


def main():
    if sys.argv[1] == "--fleet-seeds":
        return fleet_seeds(sys.argv[2])
    write_all(sys.argv[1])


def write_all(directory):
    os.makedirs(directory, exist_ok=True)
    for stamp, (cases, inside, beside, history, log) in GOLDEN.items():
        stem = os.path.join(directory, "QAV" + stamp)
        archive(stem + ".zip", cases, history=inside, log=log or b"kelbrun: done\n")
        if beside is not None:
            with open(stem + ".run.json", "w") as f:
                f.write(beside)
        if history is not None:
            with open(stem + ".db_history", "wb") as f:
                f.write(history)


if __name__ == "__main__":
    main()
