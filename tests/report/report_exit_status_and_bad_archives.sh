# ostrelctl report on the archives of hostile_archives.py, in the sandbox without a bus:
# every command line of golden/refusals.txt in bounded memory, nothing written; hostile
# ones that can be read: counted whole, shown in part, with no control character in any
# format. (Their exit statuses and messages are golden_outputs.sh's.)
source "$(dirname "$0")/../e2e/lib.sh"
mkdir -p /tmp/archives && cd /tmp/archives
python3 "$(dirname "$0")/hostile_archives.py" /tmp/archives

# Sanitizers' shadow memory counts in the peak: the bound holds for the default build.
rss_bound=$((64 << 10))
if readelf -s "$OSTRELCTL" | grep -E '__(asan|tsan)_init' >/dev/null; then rss_bound=$((4 << 20)); fi
mkdir -p /tmp/measure
# measure ARG...: ostrelctl report ARG..., its output in /tmp/measure/{out,err}; prints
# the exit status, the peak resident size in KiB and the seconds taken.
measure() { python3 "$(dirname "$0")/peak_of.py" /tmp/measure/out /tmp/measure/err "$OSTRELCTL" report "$@"; }

# The sandbox's writable places, which report must leave as they are: files with size and
# time, folders by name only (a sanitizer's runtime uses /tmp), not the project's tree (CTest's logs).
listing() {
    find /tmp /data /run \( -path "$OSTREL_SOURCE_DIR" -o -path "$OSTREL_BUILD_DIR" -o -path /tmp/measure \) -prune -o \
        \( -type d -printf '%p\n' \) -o -printf '%p %s %T@\n' 2>/dev/null | sort
}
before=$(listing)

# Each command line of golden/refusals.txt (whose statuses and messages
# golden_outputs.sh compares) under the peak memory bound; its output is kept as
# /tmp/measure/ARGUMENTS (blanks as _) for the checks below.
while read -r args; do
    # shellcheck disable=SC2086
    read -r status rss seconds <<<"$(measure $args)"
    cp /tmp/measure/out "/tmp/measure/${args// /_}"
    check "$args: exit $status under $((rss_bound >> 10)) MiB ($((rss >> 10)) MiB, $seconds s)" yes "$(yes_if test "$rss" -lt "$rss_bound")"
done < <(sed -n 's/^report \(.*\) -> [0-9]*$/\1/p' "$(dirname "$0")/golden/refusals.txt")
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
