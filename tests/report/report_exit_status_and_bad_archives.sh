# ostrelctl report on archives made here with python3's zipfile: the exit
# status of whole archives, and for a bad command line or an archive that is
# not Ostrel's, truncated or hostile, exit 2, one message and nothing written.
# Runs in the device sandbox without a bus.
source "$(dirname "$0")/../e2e/lib.sh"
dir=/tmp/archives
mkdir -p "$dir"
cd "$dir"

/usr/bin/python3 - <<'PY'
import json, zipfile
def case(name, select=True, rounds=None, boots=None, seconds=None):
    tc = {"name": name, "select": select, "command": "say " + name, "testcase_value": 1,
          "isRound": seconds is None, "testcase_current_time": 0, "testcase_target_time": 0,
          "testcase_current_round": 0, "testcase_target_round": 0}
    if boots is not None:
        tc.update(isBootTest=True, testcase_current_round=boots[0], testcase_target_round=boots[1])
    if rounds is not None:
        tc["testcase_target_round"] = rounds
    if seconds is not None:
        tc.update(testcase_current_time=seconds[0], testcase_target_time=seconds[1])
    return tc
def archive(name, cases, history=b"", plan=None, extra=(), method=zipfile.ZIP_DEFLATED):
    text = plan if plan is not None else json.dumps({"current_state": 3, "testcases": cases})
    with zipfile.ZipFile(name, "w", method) as z:
        z.writestr("qav/data/ostreldata.txt", text)
        z.writestr("qav/data/db_history", history)
        z.writestr("qav/kelbrun/kelbrun_log.txt", "kelbrun: done\n")
        for entry in extra:
            z.writestr(entry, "x")
reached = [case("boots", boots=(2, 2)), case("hours", seconds=(7210, 7200)), case("off", False, boots=(0, 5))]
archive("QAVpass.zip", reached)
archive("QAVunknown.zip", [case("rounds", rounds=4)])
archive("QAVshort.zip", [case("hours", seconds=(3590, 3600))])
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
archive("crc.zip", [], plan=json.dumps({"testcases": [case("x", rounds=1)]}), method=zipfile.ZIP_STORED)
damaged = open("crc.zip", "rb").read().replace(b'"select": true', b'"select": TRUE')
open("crc.zip", "wb").write(damaged)
PY
mkfifo fifo.zip

# What the sandbox's writable places hold; report must leave them as they are.
# Files with their size and time, folders by name: a sanitizer's runtime makes
# and removes a file of its own in /tmp, which changes only the folder's time.
# The project's own tree is left out: a clone may live under /tmp, where CTest
# writes its logs while the test runs.
listing() {
    find /tmp /data /run \( -path "$OSTREL_SOURCE_DIR" -o -path "$OSTREL_BUILD_DIR" \) -prune -o \
        \( -type d -printf '%p\n' \) -o -printf '%p %s %T@\n' 2>/dev/null | sort
}
before=$(listing)

# ARGUMENTS|STATUS|STANDARD ERROR (\n between lines)
while IFS='|' read -r args want message; do
    [ -z "$args" ] && continue
    # shellcheck disable=SC2086 # the arguments are words
    status=0; out=$("$OSTRELCTL" report $args 2>/dev/null) || status=$?
    # shellcheck disable=SC2086
    err=$("$OSTRELCTL" report $args 2>&1 >/dev/null || true)
    check "$args: exit $want" "$want" "$status"
    if [ "$want" -eq 2 ]; then
        check "$args: the message" "$(printf '%b' "$message")" "$err"
        check "$args: nothing on standard output" "" "$out"
        check "$args: nothing written" "$before" "$(listing)"
    else
        check "$args: no message" "" "$err"
    fi
done <<EOF
QAVpass.zip|0|
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
    "$("$OSTRELCTL" report --format json QAVbeside.zip | jq -r '.crash_history.lines[]')"
[ "$failures" -eq 0 ] || { echo "$failures check(s) failed"; exit 1; }
echo "all checks passed"
