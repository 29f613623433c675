# ostrelctl report over many runs that the real service made here (an aborted run,
# a run through a reboot whose executor wrote a crash line and ended by itself, a
# retry of it) with a damaged archive among them: the summary in every format, its
# page in a real browser, and retry over the bus.
source "$(dirname "$0")/../e2e/lib.sh"
source "$(dirname "$0")/like.sh"
golden=$(dirname "$0")/golden/summary-of-runs  # what each reader must make of them
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

# placeholders: the archives' stamps, the device's id and its host name as a JUnit
# classname has it (the runs are made here).
host=$(hostname | tr -c "A-Za-z0-9\n-" _)
placeholders() {
    sed -E -e "s/$(basename "$aborted" .zip)/QAV<aborted>/g; s/$(basename "$rebooted" .zip)/QAV<rebooted>/g" \
        -e "s/$(basename "${again:-QAVnone}" .zip)/QAV<again>/g; s/$device_id/<device id>/g; s/$host/<host>/g"
}
# retry: only the failed test case, said with its verdict, counters reset, the
# configuration applied again; a result whose record names another device is refused
# (exit 1, the plan unchanged).
selected() { ctl get-test | jq -r '[.testcases[] | select(.select)] | map("\(.name) \(.testcase_current_time) \(.testcase_target_time)") | join(",")'; }
retried=$(ctl retry "$rebooted")
mkdir -p /tmp/other && cp "$rebooted" /tmp/other/QAVother.zip
jq '.device.device_id = "another-machine"' "${rebooted%.zip}.run.json" > /tmp/other/QAVother.run.json
device_id=$(jq -r .device.device_id "${rebooted%.zip}.run.json")
{ echo "$retried"; selected; ctl state
  echo "exit $(status_of ctl retry /tmp/other/QAVother.zip) $(ctl retry /tmp/other/QAVother.zip 2>&1 >/dev/null)"; selected
} | like "$golden/retry.txt" "retry: the failed test case alone, counters reset, the configuration again; another device's result refused"
# 3: the retry run, finished by the client once its crash line is written (at 1 s).
ctl run-start >/dev/null && sleep 3 && ctl run-finished >/dev/null
again=$(archive_of "$(ctl get-result)")
check "a run of the retried plan reports on that test case alone" "soak" \
    "$(ctl report --format json "$again" | jq -r '[.testcases[].id] | join(",")')"
head -c 200 "$rebooted" > "$results/QAV00000000_000000.zip"

# A lab names each run's device: every archive or folder takes the last --device
# before it, those before the first --device take the first (one --device names all).
devices() { ctl report --format json "$@" | jq -r '[.runs[].device] | join(" ")' || true; }
{ status=0; ctl report --format json "$results" > /tmp/summary.json || status=$?
  echo "exit $status"
  # Test cases across runs: pass, fail, error, aborted, unknown and the runs that failed;
  # crash signatures, numbers and addresses masked, with an example.
  jq -c '(.runs | length), [.runs[].end_cause], .bad_archives, (.testcases[] | [.id, .counts, (.failed_runs | length)]),
         (.crash_signatures[0] | [.signature, .count, (.devices | length), .example])' /tmp/summary.json
  ctl report "$results" | grep -E '^Ostrel runs:|^3x  ' || true
  devices "$aborted" --device lab-1 "$rebooted" --device lab-2 "$again"
  devices "$aborted" "$rebooted" "$again" --device rack
  devices --device lab-1 "$aborted" --device rack /tmp/other
  ctl report --format junit "$results" > /tmp/summary.xml || true
  /usr/bin/python3 "$(dirname "$0")/junit_cases.py" /tmp/summary.xml  # a suite per run, one for the damaged archive
} | like "$golden/summary.txt" "the summary in JSON, text and JUnit: three runs and the damaged archive, counts by test case, crash signatures, devices"

# The page, with a test-case name that holds markup, in headless chromium from file://.
# (An archive's name has the second it was packed: one second apart, no two share it.)
sleep 1
plan "$(testcase '<img src=http://example.com/x.png>' "say x" 1 time)" > /tmp/markup.json
ctl set-test /tmp/markup.json >/dev/null && ctl run-start >/dev/null && ctl run-abort >/dev/null && ctl get-result >/dev/null
ctl report --format html "$results" > /tmp/summary.html || true
facts=$(python3 "$(dirname "$0")/page_in_chromium.py" /tmp/summary.html /tmp/summary 2>&1)
# Counts from the DOM, markup shown as text, fits 390 px, every link reached with the Tab
# key, the smallest font, no error, no request; at both widths a failing cell's details by
# a click, the run's details by keyboard (with its log's last line), the device column,
# colours by verdict, print.
sed -E 's/(Run 1: QAV[0-9_]+).*/\1 .../; s/ (A|stopped at) [0-9]+ of 3600/ \1 <n> of 3600/g' <<<"$facts" |
    like "$golden/page.txt" "the page in chromium, at 390 and 1280 px"
check "the name with markup is text; a 390 px screenshot" "yes 390" \
    "$(yes_if grep -qF '&lt;img src=http://example.com/x.png&gt;' /tmp/summary.html) $(python3 -c 'import struct, sys; print(struct.unpack(">I", open(sys.argv[1], "rb").read()[16:20])[0])' /tmp/summary-390px.png)"
# A passing run and a path that cannot be read: the headline says incomplete, in its own colour.
mkdir -p /tmp/golden && python3 "$(dirname "$0")/golden_archives.py" /tmp/golden >/dev/null
ctl report --format html /tmp/golden/QAV20261124_060001.zip /tmp/golden/gone > /tmp/incomplete.html || true
facts=$(python3 "$(dirname "$0")/page_in_chromium.py" /tmp/incomplete.html /tmp/incomplete 2>&1)
check "an unreadable input: the headline says incomplete, in a colour of its own" \
    "heading: Ostrel runs: 1 read, 0 failed, 1 not readable incomplete|headline: incomplete rgb(125, 78, 0)" \
    "$(grep '^heading' <<<"$facts")|$(grep -o 'headline: .*' <<<"$facts" | sort -u)"
finish
