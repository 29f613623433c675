# ostrelctl report on archives made here, in the sandbox without a bus: the exit status of
# whole ones; a bad command line or an archive not Ostrel's, truncated or hostile: exit 2, one message, nothing written.
source "$(dirname "$0")/../e2e/lib.sh"
mkdir -p /tmp/archives && cd /tmp/archives

/usr/bin/python3 - <<'PY'
import json, zipfile
def case(name, kind="rounds", reached=0, target=0, select=True):
    unit = "time" if kind == "hours" else "round"
    tc = {"name": name, "select": select, "command": "say " + name, "testcase_value": 1,
          "isRound": kind != "hours", "testcase_current_time": 0, "testcase_target_time": 0,
          "testcase_current_round": 0, "testcase_target_round": 0,
          "testcase_current_" + unit: reached, "testcase_target_" + unit: target}
    return dict(tc, isBootTest=True) if kind == "boots" else tc
def archive(name, cases, history=b"", plan=None, extra=(), method=zipfile.ZIP_DEFLATED):
    with zipfile.ZipFile(name, "w", method) as z:
        z.writestr("qav/data/ostreldata.txt", plan or json.dumps({"current_state": 3, "testcases": cases}))
        z.writestr("qav/data/db_history", history)
        z.writestr("qav/kelbrun/kelbrun_log.txt", "kelbrun: done\n")
        for entry in extra:
            z.writestr(entry, "x")
reached = [case("boots", "boots", 2, 2), case("hours", "hours", 7210, 7200), case("off", "boots", 0, 5, False)]
archive("QAVpass.zip", reached)
archive("QAVunknown.zip", [case("rounds", target=4)])
archive("QAVshort.zip", [case("hours", "hours", 3590, 3600)])
archive("QAVinside.zip", reached, history=b"panic 1\n")
archive("QAVbeside.zip", reached)
open("QAVbeside.db_history", "w").write("oops 1\n")
with zipfile.ZipFile("plain.zip", "w") as z:
    z.writestr("readme.txt", "a zip, not a result")
good = open("QAVpass.zip", "rb").read()
open("truncated.zip", "wb").write(good[: len(good) // 2])
archive("dotdot.zip", reached, extra=["qav/../../etc/evil"])
archive("absolute.zip", reached, extra=["/etc/evil"])
archive("notjson.zip", [], plan="{\"testcases\": [")
archive("huge.zip", [], plan=" " * (17 << 20))
archive("crc.zip", [], plan=json.dumps({"testcases": [case("x", target=1)]}), method=zipfile.ZIP_STORED)
damaged = open("crc.zip", "rb").read().replace(b'"select": true', b'"select": TRUE')
open("crc.zip", "wb").write(damaged)
PY
mkfifo fifo.zip

# The sandbox's writable places, which report must leave as they are: files with size and
# time, folders by name only (a sanitizer's runtime uses /tmp), not the project's tree (CTest's logs).
listing() {
    find /tmp /data /run \( -path "$OSTREL_SOURCE_DIR" -o -path "$OSTREL_BUILD_DIR" \) -prune -o \
        \( -type d -printf '%p\n' \) -o -printf '%p %s %T@\n' 2>/dev/null | sort
}
before=$(listing)

# ARGUMENTS|STATUS|STANDARD ERROR (\n between lines); the arguments are words.
while IFS='|' read -r args want message; do
    # shellcheck disable=SC2086
    status=0; out=$(ctl report $args 2>/dev/null) || status=$?; err=$(ctl report $args 2>&1 >/dev/null || true)
    if [ "$want" -eq 2 ]; then
        check "$args: exit 2, the message, nothing on standard output, nothing written" \
            "2 $(printf '%b' "$message")|$before" "$status $err$out|$(listing)"
    else
        check "$args: exit $want, no message" "$want " "$status $err"
    fi
done <<EOF
QAVpass.zip|0|
--help|0|
--format junit QAVunknown.zip|0|
--format lava QAVshort.zip|1|
--format json QAVinside.zip|1|
QAVbeside.zip|1|
plain.zip|2|ostrelctl: plain.zip: no plan in it (no qav/data/ostreldata.txt): not a result of Ostrel
--format junit truncated.zip|2|ostrelctl: truncated.zip: not a zip archive, or a damaged one (Invalid file)
--format json dotdot.zip|2|ostrelctl: dotdot.zip: entry "qav/../../etc/evil" points outside the archive's folder (a damaged or hostile archive)
absolute.zip|2|ostrelctl: absolute.zip: entry "/etc/evil" points outside the archive's folder (a damaged or hostile archive)
--format lava notjson.zip|2|ostrelctl: notjson.zip: the plan qav/data/ostreldata.txt is not JSON
huge.zip|2|ostrelctl: huge.zip: qav/data/ostreldata.txt is 17825792 bytes, more than the 16 MiB read from an archive
crc.zip|2|ostrelctl: crc.zip: qav/data/ostreldata.txt is damaged (its CRC does not match)
fifo.zip|2|ostrelctl: fifo.zip: not a regular file
missing.zip|2|ostrelctl: missing.zip: cannot read: No such file or directory
--format xml QAVpass.zip|2|ostrelctl: report: unknown format "xml"\nusage: ostrelctl report [--format text|json|junit|lava] ARCHIVE
QAVpass.zip plain.zip|2|ostrelctl: report takes one ARCHIVE\nusage: ostrelctl report [--format text|json|junit|lava] ARCHIVE
EOF

check "the history beside the archive is read before the archive's own" "oops 1" \
    "$(ctl report --format json QAVbeside.zip | jq -r '.crash_history.lines[]')"
finish
