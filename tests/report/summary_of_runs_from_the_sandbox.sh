# ostrelctl report over many runs that the real service made here (an aborted run,
# a run through a reboot whose executor wrote a crash line and ended by itself, a
# retry of it) with a damaged archive among them: the summary in every format, its
# page in a real browser, and retry over the bus.
source "$(dirname "$0")/../e2e/lib.sh"
results=/data/vendor/qav/results
start_service
ctl boot-completed >/dev/null
archive_of() { sed -n 's/^archive: //p' <<<"$1"; }
wait_for_state() {
    for _ in $(seq 300); do [ "$(ctl state)" == "$1" ] && return 0; sleep 0.1; done
    echo "FAIL: the planner never reached $1"; exit 1
}

# 1: a crash line at once, then aborted: the time test case and the boot test fall short.
plan "$(testcase soak "crash short panic-0x3a-in-driver7 1 sleep 30" 1 time)" \
     "$(testcase boots "say up" 1 boot)" > /tmp/first.json
ctl set-test /tmp/first.json >/dev/null && ctl run-start >/dev/null && sleep 2 && ctl run-abort >/dev/null
aborted=$(archive_of "$(ctl get-result)")

# 2: a configuration applied, a reboot (the service stopped and started again) counts
# the boot test's one boot; the executor writes a crash line and ends by itself.
ctl get-config > /tmp/config.json && ctl set-config /tmp/config.json >/dev/null
plan "$(testcase soak "sleep 1 1 crash short panic-0x1f2e-in-driver12" 1 time)" \
     "$(testcase boots "say up" 1 boot)" > /tmp/second.json
ctl set-test /tmp/second.json >/dev/null && ctl run-start >/dev/null
stop_service; start_service; ctl boot-completed >/dev/null
wait_for_state COMPLETING
rebooted=$(archive_of "$(ctl get-result)")

# retry: only the failed test case, said with its verdict, counters reset, the
# configuration applied again; a result whose record names another device is refused.
retried=$(ctl retry "$rebooted")
check "retry stores the failed test case alone, counters reset, and applies the run's configuration again" \
    "retry: run again from $rebooted:   fail  soak: stopped at 10 of 3600 seconds setTest: ok setConfig: ok retry: 1 test case(s) selected again; run-start runs them soak 0 0 PREPARING" \
    "$(tr '\n' ' ' <<<"$retried")$(ctl get-test | jq -r '[.testcases[] | select(.select)] | map("\(.name) \(.testcase_current_time) \(.testcase_target_time)") | join(",")') $(ctl state)"
mkdir -p /tmp/other && cp "$rebooted" /tmp/other/QAVother.zip
jq '.device.device_id = "another-machine"' "${rebooted%.zip}.run.json" > /tmp/other/QAVother.run.json
check "retry of another device's result: refused, exit 1, the plan unchanged" \
    "1 ostrelctl: retry: the result is of another device (its device_id \"another-machine\", this device's \"$(jq -r .device.device_id "${rebooted%.zip}.run.json")\") soak" \
    "$(status_of ctl retry /tmp/other/QAVother.zip) $(ctl retry /tmp/other/QAVother.zip 2>&1 >/dev/null) $(ctl get-test | jq -r '[.testcases[] | select(.select) | .name] | join(",")')"

# 3: the retry run, finished by the client once its crash line is written (at 1 s).
ctl run-start >/dev/null && sleep 3 && ctl run-finished >/dev/null
again=$(archive_of "$(ctl get-result)")
check "a run of the retried plan reports on that test case alone" "soak" \
    "$(ctl report --format json "$again" | jq -r '[.testcases[].id] | join(",")')"
head -c 200 "$rebooted" > "$results/QAV00000000_000000.zip"

status=0; ctl report --format json "$results" > /tmp/summary.json || status=$?
check "the summary: exit 1 (runs failed), three runs and the damaged archive with its reason" \
    "1 3 runAbort,executor,runFinished $results/QAV00000000_000000.zip: not a zip archive, or a damaged one (Invalid file)" \
    "$status $(jq -r '"\(.runs | length) \(.runs | map(.end_cause) | join(",")) \(.bad_archives[0].archive): \(.bad_archives[0].reason)"' /tmp/summary.json)"
check "test cases across runs: pass, fail, error, aborted, unknown and the runs that failed" \
    "soak 0 2 0 1 0 3|boots 1 0 0 1 0 1" \
    "$(jq -r '.testcases | map("\(.id) \(.counts.pass) \(.counts.fail) \(.counts.error) \(.counts.aborted) \(.counts.unknown) \(.failed_runs | length)") | join("|")' /tmp/summary.json)"
check "crash signatures: the three panics as one, numbers and addresses masked, with an example" \
    "panic-0x#-in-driver# # 3 1 panic-0x3a-in-driver7 1" \
    "$(jq -r '.crash_signatures[0] | "\(.signature) \(.count) \(.devices | length) \(.example)"' /tmp/summary.json)"
check "text: the same counts, the damaged archive listed" "yes yes" \
    "$(yes_if grep -q '^Ostrel runs: 3 read, 3 failed, 1 not readable: fail, incomplete$' <(ctl report "$results")) $(yes_if grep -q '^3x  panic-0x#-in-driver# #$' <(ctl report "$results"))"
# A lab names each run's device: every archive or folder takes the last --device
# before it, those before the first --device take the first (one --device names all).
devices() { ctl report --format json "$@" | jq -r '[.runs[].device] | join(" ")'; }
check "a summary's devices: the --device before each archive, the first for those before it, a folder's for its archives" \
    "lab-1 lab-1 lab-2|rack rack rack|lab-1 rack" \
    "$(devices "$aborted" --device lab-1 "$rebooted" --device lab-2 "$again")|$(devices "$aborted" "$rebooted" "$again" --device rack)|$(devices --device lab-1 "$aborted" --device rack /tmp/other)"
ctl report --format junit "$results" > /tmp/summary.xml || true
check "JUnit read back by junitparser: a suite per run and one for the damaged archive" "4 suites, 9 tests, 7 failures, 1 errors" \
    "$(python3 -c '
import sys
from junitparser import JUnitXml
xml = JUnitXml.fromfile(sys.argv[1])
suites = list(xml)
cases = [c for s in suites for c in s]
fails = sum(1 for c in cases for r in c.result if r._tag == "failure")
errors = sum(1 for c in cases for r in c.result if r._tag == "error")
print("%d suites, %d tests, %d failures, %d errors" % (len(suites), len(cases), fails, errors))' /tmp/summary.xml)"

# The page, with a test-case name that holds markup, in headless chromium from file://.
# (An archive's name has the second it was packed: one second apart, no two share it.)
sleep 1
plan "$(testcase '<img src=http://example.com/x.png>' "say x" 1 time)" > /tmp/markup.json
ctl set-test /tmp/markup.json >/dev/null && ctl run-start >/dev/null && ctl run-abort >/dev/null && ctl get-result >/dev/null
ctl report --format html "$results" > /tmp/summary.html || true
facts=$(python3 "$(dirname "$0")/page_in_chromium.py" /tmp/summary.html /tmp/summary 2>&1)
check "the page in chromium: counts from the DOM, markup shown as text, fits 390 px, no error, no request" "$(cat <<'EOF'
runs: 4
failed runs: 4
signatures: 1
images: 0
script filter: 4 of 4 runs shown
fits 390 px: True
console errors: []
requests leaving the page: []
EOF
)" "$(grep -Ev '^(heading|smallest font px|links reached by Tab|[0-9]+ px: .*):' <<<"$facts")"
check "every link reached with the Tab key; no text under 12 px; the name with markup is text; a 390 px screenshot" \
    "yes yes yes 390" \
    "$(yes_if grep -Eq '^links reached by Tab: ([0-9]+) of \1$' <<<"$facts") $(yes_if python3 -c 'import sys; sys.exit(float(sys.argv[1]) < 12)' "$(sed -n 's/^smallest font px: //p' <<<"$facts")") $(yes_if grep -qF '&lt;img src=http://example.com/x.png&gt;' /tmp/summary.html) $(python3 -c 'import struct, sys; print(struct.unpack(">I", open(sys.argv[1], "rb").read()[16:20])[0])' /tmp/summary-390px.png)"
# At both widths: a failing cell's details by a click, a run's by the keyboard (with
# its log's last line), the device column kept in place, colours by verdict, print.
for width in 390 1280; do
    check "$width px: a failing cell's click shows its verdict, reason and command on screen" "yes" \
        "$(yes_if grep -Eq "^$width px: a failing cell's click shows: on screen: soak A [0-9]+ of 3600 seconds the run was aborted .*crash short panic-0x3a-in-driver7 1 sleep 30$" <<<"$facts")"
    check "$width px: the run's details by keyboard, the device column, colours by verdict, print" \
        "$width px: the matrix: matrix scrolls sideways: $([ "$width" = 390 ] && echo yes || echo no), device column stays: yes
$width px: colours by verdict: cells: aborted rgb(188, 76, 0), fail rgb(207, 34, 46), pass rgb(26, 127, 55); bars: aborted rgb(188, 76, 0), fail rgb(207, 34, 46); headline: fail rgb(207, 34, 46)
$width px: closed details shown before a click: False
$width px: Enter on the first run's device shows: on screen: Run 1: $(basename "${aborted%.zip}") ...
$width px: the run's log shown: kelbrun: sleep round 1 of 1 (30 s)
$width px: print shows every run's details: True" \
        "$(grep "^$width px:" <<<"$facts" | grep -v "click shows" | sed -E 's/(Run 1: QAV[0-9_]+).*/\1 .../')"
done
# A passing run and a path that cannot be read: the headline says incomplete, in its own colour.
mkdir -p /tmp/golden && python3 "$(dirname "$0")/golden_archives.py" /tmp/golden >/dev/null
ctl report --format html /tmp/golden/QAV20261124_060001.zip /tmp/golden/gone > /tmp/incomplete.html || true
facts=$(python3 "$(dirname "$0")/page_in_chromium.py" /tmp/incomplete.html /tmp/incomplete 2>&1)
check "an unreadable input: the headline says incomplete, in a colour of its own" \
    "heading: Ostrel runs: 1 read, 0 failed, 1 not readable incomplete|headline: incomplete rgb(125, 78, 0)" \
    "$(grep '^heading' <<<"$facts")|$(grep -o 'headline: .*' <<<"$facts" | sort -u)"
finish
