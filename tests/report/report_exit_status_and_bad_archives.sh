# ostrelctl report on archives made here, in the sandbox without a bus: the exit status of
# whole ones; a bad command line or an archive not Ostrel's, truncated or hostile: exit 2,
# one line, nothing written; hostile ones that can be read: counted whole, shown in part,
# in bounded memory, with no control character in any format.
source "$(dirname "$0")/../e2e/lib.sh"
mkdir -p /tmp/archives && cd /tmp/archives

/usr/bin/python3 - "$(dirname "$0")" <<'PY'
import json, sys, zipfile
sys.path.insert(0, sys.argv[1])
from hostile_archives import archive, case, plan_of
reached = [case("boots", "boots", 2, 2), case("hours", "hours", 7210, 7200), case("off", "boots", 0, 5, False)]
archive("QAVpass.zip", plan_of(reached))
archive("QAVunknown.zip", plan_of([case("rounds", target=4)]))
archive("QAVshort.zip", plan_of([case("hours", "hours", 3590, 3600)]))
archive("QAVinside.zip", plan_of(reached), history=b"panic 1\n")
archive("QAVbeside.zip", plan_of(reached))
open("QAVbeside.db_history", "w").write("oops 1\n")
with zipfile.ZipFile("plain.zip", "w") as z:
    z.writestr("readme.txt", "a zip, not a result")
good = open("QAVpass.zip", "rb").read()
open("truncated.zip", "wb").write(good[: len(good) // 2])
archive("dotdot.zip", plan_of(reached), extra=[("qav/../../etc/evil", "x")])
archive("absolute.zip", plan_of(reached), extra=[("/etc/evil", "x")])
archive("notjson.zip", "{\"testcases\": [")
archive("huge.zip", " " * (17 << 20))
archive("crc.zip", json.dumps({"testcases": [case("x", target=1)]}), method=zipfile.ZIP_STORED)
damaged = open("crc.zip", "rb").read().replace(b'"select": true', b'"select": TRUE')
open("crc.zip", "wb").write(damaged)
PY
mkfifo fifo.zip
python3 "$(dirname "$0")/hostile_archives.py" /tmp/archives
cp QAVpass.zip QAVrecordfifo.zip && mkfifo QAVrecordfifo.run.json
# Links beside an archive would show another file's lines or record as the run's.
cp QAVpass.zip QAVlinkhistory.zip && ln -s /etc/passwd QAVlinkhistory.db_history
cp QAVpass.zip QAVlinkrecord.zip && ln -s /etc/os-release QAVlinkrecord.run.json

# Sanitizers' shadow memory counts in the peak: the bound holds for the default build.
rss_bound=$((64 << 10))
if readelf -s "$OSTRELCTL" | grep -E '__(asan|tsan)_init' >/dev/null; then rss_bound=$((4 << 20)); fi
mkdir -p /tmp/measure
# measure ARG...: ostrelctl report ARG..., its output in /tmp/measure/{out,err}; prints
# the exit status, the peak resident size in KiB and the seconds taken.
measure() {
    python3 - "$OSTRELCTL" "$@" <<'PY'
import resource, subprocess, sys, time
start = time.monotonic()
with open("/tmp/measure/out", "wb") as out, open("/tmp/measure/err", "wb") as err:
    status = subprocess.run([sys.argv[1], "report", *sys.argv[2:]], stdout=out, stderr=err).returncode
print(status, resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss, "%.2f" % (time.monotonic() - start))
PY
}

# The sandbox's writable places, which report must leave as they are: files with size and
# time, folders by name only (a sanitizer's runtime uses /tmp), not the project's tree (CTest's logs).
listing() {
    find /tmp /data /run \( -path "$OSTREL_SOURCE_DIR" -o -path "$OSTREL_BUILD_DIR" -o -path /tmp/measure \) -prune -o \
        \( -type d -printf '%p\n' \) -o -printf '%p %s %T@\n' 2>/dev/null | sort
}
before=$(listing)

# ARGUMENTS|STATUS|STANDARD ERROR (\n between lines, none for exit 0 and 1); the
# arguments are words. Each row also keeps its peak memory under the bound; its
# output is kept as /tmp/measure/ARGUMENTS (blanks as _) for the checks below.
while IFS='|' read -r args want message; do
    # shellcheck disable=SC2086
    read -r status rss seconds <<<"$(measure $args)"
    err=$(cat /tmp/measure/err)
    [ "$want" -eq 2 ] && out=$(cat /tmp/measure/out) || out=""
    cp /tmp/measure/out "/tmp/measure/${args// /_}"
    check "$args: exit $want, $([ "$want" -eq 2 ] && echo "one message, nothing on standard output" || echo "no message"), under $((rss_bound >> 10)) MiB ($((rss >> 10)) MiB, $seconds s)" \
        "$want $(printf '%b' "$message") yes" "$status $err$out $(yes_if test "$rss" -lt "$rss_bound")"
done <<EOF
QAVpass.zip|0|
--help|0|
--format junit QAVunknown.zip|4|
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
--format xml QAVpass.zip|2|ostrelctl: report: unknown format "xml"\nusage: ostrelctl report [--format text|json|junit|lava|html] [--exec] [--device LABEL] ARCHIVE|FOLDER...
--format json|2|ostrelctl: report takes an ARCHIVE or more, or a folder\nusage: ostrelctl report [--format text|json|junit|lava|html] [--exec] [--device LABEL] ARCHIVE|FOLDER...
--format json QAVnewlines.zip|1|
--format json QAVlongline.zip|1|
--format json QAVmillion.zip|1|
--format lava QAVsamename.zip|4|
--format json QAVrecordboots.zip|0|
QAVdamaged.zip|2|ostrelctl: QAVdamaged.zip: not a zip archive, or a damaged one (Invalid offset)
QAVforged.zip|2|ostrelctl: QAVforged.zip: entry "../x\xef\xbf\xbdostrelctl: QAV.zip: OK, all passed" points outside the archive's folder (a damaged or hostile archive)
--format junit QAVmethod.zip|2|ostrelctl: QAVmethod.zip: qav/data/ostreldata.txt is compressed with method 12, which this reader does not support (only stored and deflated)
QAVrecordhuge.zip|2|ostrelctl: QAVrecordhuge.zip: the run record QAVrecordhuge.run.json is not a regular file of at most 4 MiB
QAVrecorddeep.zip|2|ostrelctl: QAVrecorddeep.zip: the run record QAVrecorddeep.run.json is not a JSON object
QAVrecordfifo.zip|2|ostrelctl: QAVrecordfifo.zip: the run record QAVrecordfifo.run.json is not a regular file of at most 4 MiB
QAVlinkhistory.zip|2|ostrelctl: QAVlinkhistory.zip: the history copy QAVlinkhistory.db_history is a symbolic link, which is not followed
QAVlinkrecord.zip|2|ostrelctl: QAVlinkrecord.zip: the run record QAVlinkrecord.run.json is a symbolic link, which is not followed
EOF
check "nothing was written" "$before" "$(listing)"

# What is shown is bounded; what is counted is whole.
check "16 MiB of line ends: every line counted, the first 1,000 shown, the rest said" "16777216 1000 16776216 fail" \
    "$(jq -r '.crash_history | "\(.count) \(.lines | length) \(.lines_left_out) \(.verdict)"' /tmp/measure/--format_json_QAVnewlines.zip)"
check "a line of 16 MiB: cut to 1 KiB with what was left out" "1050  ... (16776192 more bytes)" \
    "$(jq -r '.crash_history.lines[0] | "\(length) \(.[1024:])"' /tmp/measure/--format_json_QAVlongline.zip)"
check "a million test cases (of no size: errors): 1,000 shown, the rest counted by verdict, every one in the counts" \
    "1000 999000 999000 1000000" \
    "$(jq -r '"\(.testcases | length) \(.testcases_left_out.count) \(.testcases_left_out.error) \(.counts.error)"' /tmp/measure/--format_json_QAVmillion.zip)"
check "text, JUnit and LAVA say what was left out" "yes yes yes" "$(yes_if grep -q '^\.\.\. *39000 more selected test case(s) left out of this report (0 pass, 0 fail, 0 error, 0 aborted, 39000 unknown)' <(ctl report QAVsamename.zip)) \
$(yes_if grep -q 'name="39000 more test cases"' <(ctl report --format junit QAVsamename.zip)) \
$(yes_if grep -qx 'lava-test-case left_out --result unknown --measurement 39000 --units testcases' /tmp/measure/--format_lava_QAVsamename.zip)"
check "1,000 shown test cases of one name: 1,000 distinct LAVA names and ids" "1000 1000" \
    "$(grep '^lava-test-case same' /tmp/measure/--format_lava_QAVsamename.zip | cut -d' ' -f2 | sort -u | wc -l) $(ctl report --format json QAVsamename.zip | jq '[.testcases[].id] | unique | length')"
check "a record of 400,000 boots: counted, the first 1,000 kept" "400000 1000" \
    "$(jq -r '"\(.run.boot_count) \(.run.boots | length)"' /tmp/measure/--format_json_QAVrecordboots.zip)"
for format in text json junit lava; do
    check "controls in names, commands and lines: none in the $format report, valid UTF-8" "clean" "$(ctl report --format "$format" QAVcontrols.zip | python3 -c '
import re, sys
text = sys.stdin.buffer.read().decode("utf-8")
print("clean" if text and not re.search("[\x00-\x09\x0b-\x1f\x7f-\x9f]", text) else "dirty")' 2>&1)"
done

# --exec runs each LAVA line as a command with its words as arguments: stand-ins
# on PATH record what they were given.
mkdir -p /tmp/lavabin
for helper in lava-test-case lava-test-set; do
    printf '#!/bin/sh\necho "$(basename "$0") $*" >> /tmp/lavabin/calls\n' > /tmp/lavabin/$helper
    chmod +x /tmp/lavabin/$helper
done
PATH=/tmp/lavabin:$PATH ctl report --format lava --exec QAVcontrols.zip >/dev/null || true
check "report --exec: every LAVA line run as a call with its words, in order" \
    "$(ctl report --format lava QAVcontrols.zip)" "$(cat /tmp/lavabin/calls)"
check "report --exec without lava-test-set: exit 2 and which call" \
    "2 ostrelctl: report: lava-test-set start: not found or not runnable" \
    "$(status_of env PATH=/nonexistent "$OSTRELCTL" report --format lava --exec QAVpass.zip) $(env PATH=/nonexistent "$OSTRELCTL" report --format lava --exec QAVpass.zip 2>&1)"
check "the history beside the archive is read before the archive's own" "oops 1" \
    "$(ctl report --format json QAVbeside.zip | jq -r '.crash_history.lines[]')"
finish
