# Real runs in the device sandbox, their results fetched and reported offline in
# each format and read back: an aborted run (a round test, a time test of size 0,
# a boot test after one boot of three, two crash lines); a run whose executor dies
# of SIGSEGV; one whose executor runs its rounds and exits 0; and the same results
# with an edited run record (exit 3) and with none (an older build). What each
# reader makes of them is compared with golden/real-run/.
source "$(dirname "$0")/../e2e/lib.sh"
golden=$(dirname "$0")/golden/real-run  # what each reader must make of the results

start_service
ctl boot-completed >/dev/null
# A crash line with XML's special characters and a control byte; the crashes wait
# 3 s so that the executor started again after the reboot is aborted before them.
plan "$(testcase greeting "say hi" 2)" \
     "$(testcase "crash lines" 'sleep 3 1 crash short e2e<short&\u0001 1 crash long e2e-long' 1)" \
     "$(testcase warm-up "say warm" 0 time)" "$(testcase reboots "sleep 60" 3 boot)" \
     "$(testcase "not selected" "say never" 1 round false)" > /tmp/plan.json
ctl set-test --force /tmp/plan.json >/dev/null  # a size of 0, on purpose
ctl run-start >/dev/null
for _ in $(seq 100); do [ "$(cat /data/vendor/qav/data/db_history 2>/dev/null | wc -l)" -lt 2 ] || break; sleep 0.2; done
# A reboot: one boot of the boot test is counted, then the run is aborted.
stop_service
start_service
ctl boot-completed >/dev/null
ctl run-abort >/dev/null
archive=$(ctl get-result | sed -n 's/^archive: //p')
stamp=$(basename "$archive" .zip); stamp=${stamp#QAV}
stop_service

# report FORMAT [ARCHIVE]: offline: the exit status and standard error; the report in /tmp/report.out.
report() {
    local s=0
    DBUS_SYSTEM_BUS_ADDRESS=unix:path=/nonexistent ctl report --format "$1" "${2:-$archive}" \
        > /tmp/report.out 2>/tmp/report.err || s=$?
    echo "exit $s$(cat /tmp/report.err)"
}
# The host name a JUnit classname carries, as the report cleans it.
host=$(hostname | tr -c "A-Za-z0-9\n-" _)
junit_cases() { /usr/bin/python3 "$(dirname "$0")/junit_cases.py" /tmp/report.out; }
# run_to_end PLAN: stores it, starts the run, waits until the executor's end is
# seen (the service's next tick) and fetches the result: the archive's name.
run_to_end() {
    ctl set-test --force "$1" >/dev/null; ctl run-start >/dev/null
    for _ in $(seq 150); do [ "$(call getState)" != 3 ] || break; sleep 0.2; done
    ctl get-result | sed -n 's/^archive: //p'
}

source "$(dirname "$0")/like.sh"
placeholders() {
    sed -E -e "s/$stamp/<aborted>/g; s/$(basename "${segv:-QAVnone}" .zip | cut -c4-)/<segv>/g; s/$host/<host>/g" \
        -e 's/[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}Z/<time>/g; s/ after [0-9]+ s/ after <n> s/'
}

# The executor log's lines (their order and process ids vary) are the JSON's to check.
{ report text; sed '/^executor log:/,/^why:/{/^why:/!d}' /tmp/report.out; } | like "$golden/aborted.txt" "text: exit 1 (an aborted run, a size of 0, a boot test short of its target, crash lines)"
# The log's last line as the report gives it (the plan's control byte as U+FFFD).
log() { unzip -p "$archive" qav/kelbrun/kelbrun_log.txt; }
{ report json; jq -c '.testcases[] | [.name,.kind,.unit,.target,.reached,.asked,.verdict]' /tmp/report.out
  jq -c '{stamp,cause:.run.end_cause,verdict,counts,crash_history}' /tmp/report.out
  jq -r --argjson size "$(log | wc -c)" --arg last "$(log | tail -1 | sed 's/\x01/\xef\xbf\xbd/g')" \
     '"the log'"'"'s size and last line: \(.executor_log.size == $size) \(.executor_log.tail[-1] == $last)"' /tmp/report.out
} | like "$golden/aborted.json.txt" "json: exit 1; each test case; run, counts, crash history, the executor log's size and last line"
{ report junit; junit_cases; } | like "$golden/aborted.junit.txt" \
    "junit: exit 1, read by junitparser: one suite, classnames by device and kind, a verdict per test case"
{ report lava; sed -E 's/^(lava-test-case run .*--measurement )[0-9]+/\1N/' /tmp/report.out; } | like "$golden/aborted.lava.txt" \
    "lava: exit 1, one test set, a line per test case, measurements only of what was reached"
# A configuration applied, then an executor that dies of SIGSEGV after its first
# test case (a user's test case named "crash history" among them); then one that
# runs its rounds and exits 0.
start_service
ctl get-config | ctl set-config - >/dev/null
plan "$(testcase first "say a" 1)" "$(testcase first "signal SEGV" 1)" "$(testcase "crash history" "say b" 1)" > /tmp/segv.json
plan "$(testcase rounds "say ok" 2)" > /tmp/ok.json
segv=$(run_to_end /tmp/segv.json)
ok=$(run_to_end /tmp/ok.json)
stop_service
{ report json "$segv"; jq -c '[.testcases[].verdict], .run.error, .counts' /tmp/report.out
  jq -c '.run.configuration | test("/sillet set .* [(]exit 0[)]$")' /tmp/report.out
  report junit "$segv"; junit_cases | sed -n 1,3p
  report lava "$segv"; grep -E 'executor_|crash_history' /tmp/report.out
  report json "$ok"; jq -c '[.testcases[].verdict]' /tmp/report.out
} | like "$golden/segv-and-ok.txt" "SIGSEGV: exit 1, every test case short of its target an error, the executor's end named; \
an executor that ran its rounds and exited 0: its round test case passes, exit 0"

# The same results with an edited record (the executor exited 3), and with none.
mkdir -p /tmp/r && cp "$segv" /tmp/r/QAVexit3.zip && cp "${segv%.zip}.db_history" /tmp/r/QAVexit3.db_history
jq '.executors[0].end = {"exit": 3}' "${segv%.zip}.run.json" > /tmp/r/QAVexit3.run.json
cp "$ok" /tmp/r/QAVold.zip
{ report json /tmp/r/QAVexit3.zip; jq -c .run.error /tmp/report.out
  report text /tmp/r/QAVold.zip; sed -n 2p /tmp/report.out; report json /tmp/r/QAVold.zip >/dev/null; jq -c '[.testcases[].verdict]' /tmp/report.out
} | like "$golden/exit3-and-old.txt" "exit 3 is an error of the run; no record: the plan's counters alone, as from an older build, not proven (exit 4)"
finish
