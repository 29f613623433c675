"""Result archives as a damaged or hostile device could hand them over, made here
rather than committed: each class is a few lines of zipfile.

    hostile_archives.py DIR            the archives (and the files beside them) in DIR, with
                                       the plain ones the report refuses or reads whole
    hostile_archives.py --seeds DIR    the same as fuzz inputs of the report target:
                                       2 bytes (little-endian) of record length, the
                                       run record, then the archive's bytes
"""
import json
import os
import shutil
import struct
import sys
import zipfile

PLAN = "qav/data/ostreldata.txt"
HISTORY = "qav/data/db_history"
LOG = "qav/kelbrun/kelbrun_log.txt"


def case(name, kind="rounds", reached=0, target=1, select=True):
    unit = "time" if kind == "hours" else "round"
    tc = {"name": name, "select": select, "command": "say " + name, "testcase_value": 1,
          "isRound": kind != "hours", "testcase_current_time": 0, "testcase_target_time": 0,
          "testcase_current_round": 0, "testcase_target_round": 0,
          "testcase_current_" + unit: reached, "testcase_target_" + unit: target}
    return dict(tc, isBootTest=True) if kind == "boots" else tc


def plan_of(cases):
    return json.dumps({"current_state": 3, "testcases": cases})


def archive(path, plan, history=b"", log=b"kelbrun: done\n", extra=(), method=zipfile.ZIP_DEFLATED):
    with zipfile.ZipFile(path, "w", method) as z:
        z.writestr(PLAN, plan)
        z.writestr(HISTORY, history)
        z.writestr(LOG, log)
        for name, data in extra:
            z.writestr(name, data)


def patch_method(path, method):
    """Every entry's compression method, in the local and the central headers."""
    data = bytearray(open(path, "rb").read())
    for signature, offset in ((b"PK\x03\x04", 8), (b"PK\x01\x02", 10)):
        at = data.find(signature)
        while at >= 0:
            data[at + offset:at + offset + 2] = struct.pack("<H", method)
            at = data.find(signature, at + 4)
    open(path, "wb").write(data)


def record(start="2026-11-24T05:00:00Z", end="2026-11-24T06:00:00Z", cause="executor"):
    return json.dumps({"start": {"time": start}, "end": {"time": end, "cause": cause},
                       "executors": [{"end": {"exit": 0}}], "boots": []})


# Name -> (what it makes, the record beside it or None). Each writes DIR/<name>.zip.
def classes():
    ok = [case("boots", "boots", 2, 2), case("hours", "hours", 7210, 7200)]
    return {
        # A whole run: the baseline of the bench and a seed of the fuzz target.
        "QAVvalid": (lambda p: archive(p, plan_of(ok + [case("rounds", target=3)]),
                                       history=b"panic at 0x7f00 in driver 12\n"), record()),
        # 16 MiB of line ends in a 17 KB archive: 16,777,216 crash lines, counted.
        "QAVnewlines": (lambda p: archive(p, plan_of(ok), history=b"\n" * (16 << 20)), None),
        # One line of 16 MiB.
        "QAVlongline": (lambda p: archive(p, plan_of(ok), history=b"x" * (16 << 20)), None),
        # A million selected test cases of one key each (16 MB of plan).
        "QAVmillion": (lambda p: archive(p, '{"current_state":3,"testcases":[' +
                                         ",".join(['{"select":true}'] * 1000000) + "]}"), None),
        # 40,000 test cases of one name: LAVA names made unique.
        "QAVsamename": (lambda p: archive(p, plan_of([case("same")] * 40000)), None),
        # Control characters in names, commands and lines: C0, DEL, C1 (as UTF-8
        # and as raw bytes), a broken sequence.
        "QAVcontrols": (lambda p: archive(
            p, plan_of([case("esc\x1b[31mred\x07 tab\tcr\rnl\nend", "hours", 1, 2),
                        case("c1\u0085\u009b31m\u008d\x7fdel", "boots", 0, 1)]),
            history=b"panic \x1b]0;title\x07 \xc2\x9b\xff\xfe broken \xe2\x82\n",
            log=b"kelbrun: \x1b[2J cleared\r\n"), None),
        # An entry whose name forges a second report line.
        "QAVforged": (lambda p: archive(
            p, plan_of(ok), extra=[("../x\nostrelctl: QAV.zip: OK, all passed", b"x")]), None),
        # Compression methods this reader does not support.
        "QAVmethod": (lambda p: (archive(p, plan_of(ok)), patch_method(p, 12)), None),
        # The run record beside: too large, nested too deep.
        "QAVrecordhuge": (lambda p: archive(p, plan_of(ok)), " " * (4 << 20) + record()),
        "QAVrecorddeep": (lambda p: archive(p, plan_of(ok)), "[" * 100000),
        # A record of 400,000 boots within 4 MiB.
        "QAVrecordboots": (lambda p: archive(p, plan_of(ok)),
                           '{"end":{"cause":"executor"},"boots":[' + ",".join(["{}"] * 400000) + "]}"),
    }


def damaged(directory):
    """A central directory whose offset is off: libziparchive warns of it."""
    good = open(os.path.join(directory, "QAVnewlines.zip"), "rb").read()
    bad = bytearray(good)
    bad[-6] ^= 0x40
    open(os.path.join(directory, "QAVdamaged.zip"), "wb").write(bad)


def refused(directory):
    """Runs of each exit status and what is not a result: a zip of something else, cut
    short, entries outside the folder, a plan not JSON, too large or damaged, a FIFO,
    and links or a FIFO where the files beside an archive belong."""
    at = lambda name: os.path.join(directory, name)
    reached = [case("boots", "boots", 2, 2), case("hours", "hours", 7210, 7200), case("off", "boots", 0, 5, False)]
    archive(at("QAVpass.zip"), plan_of(reached))
    archive(at("QAVunknown.zip"), plan_of([case("rounds", target=4)]))
    archive(at("QAVshort.zip"), plan_of([case("hours", "hours", 3590, 3600)]))
    archive(at("QAVinside.zip"), plan_of(reached), history=b"panic 1\n")
    archive(at("QAVbeside.zip"), plan_of(reached))
    open(at("QAVbeside.db_history"), "w").write("oops 1\n")
    with zipfile.ZipFile(at("plain.zip"), "w") as z:
        z.writestr("readme.txt", "a zip, not a result")
    good = open(at("QAVpass.zip"), "rb").read()
    open(at("truncated.zip"), "wb").write(good[: len(good) // 2])
    archive(at("dotdot.zip"), plan_of(reached), extra=[("qav/../../etc/evil", "x")])
    archive(at("absolute.zip"), plan_of(reached), extra=[("/etc/evil", "x")])
    archive(at("notjson.zip"), "{\"testcases\": [")
    archive(at("huge.zip"), " " * (17 << 20))
    archive(at("crc.zip"), json.dumps({"testcases": [case("x", target=1)]}), method=zipfile.ZIP_STORED)
    stored = open(at("crc.zip"), "rb").read()
    open(at("crc.zip"), "wb").write(stored.replace(b'"select": true', b'"select": TRUE'))
    os.mkfifo(at("fifo.zip"))
    for name in ("QAVrecordfifo", "QAVlinkhistory", "QAVlinkrecord"):
        shutil.copy(at("QAVpass.zip"), at(name + ".zip"))
    os.mkfifo(at("QAVrecordfifo.run.json"))
    # Links beside an archive would show another file's lines or record as the run's.
    os.symlink("/etc/passwd", at("QAVlinkhistory.db_history"))
    os.symlink("/etc/os-release", at("QAVlinkrecord.run.json"))


def main():
    seeds = sys.argv[1] == "--seeds"
    directory = sys.argv[-1]
    os.makedirs(directory, exist_ok=True)
    for name, (make, beside) in classes().items():
        path = os.path.join(directory, name + ".zip")
        make(path)
        if seeds:
            data = open(path, "rb").read()
            os.remove(path)
            text = (beside or "").encode()[:0xFFFF]
            open(os.path.join(directory, name), "wb").write(struct.pack("<H", len(text)) + text + data)
        elif beside is not None:
            open(os.path.join(directory, name + ".run.json"), "w").write(beside)
    if not seeds:
        damaged(directory)
        refused(directory)


if __name__ == "__main__":
    main()
