# Real runs in the device sandbox, their results fetched and reported offline in
# each format and read back: an aborted run (a round test, a time test of size 0,
# a boot test after one boot of three, two crash lines); a run whose executor dies
# of SIGSEGV; one whose executor runs its rounds and exits 0; and the same results
# with an edited run record (exit 3) and with none (an older build).
source "$(dirname "$0")/../e2e/lib.sh"

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

# report FORMAT [ARCHIVE]: offline: the exit status, standard error, the report (JUnit's stays in /tmp/report.out).
report() {
    local s=0
    DBUS_SYSTEM_BUS_ADDRESS=unix:path=/nonexistent ctl report --format "$1" "${2:-$archive}" \
        > /tmp/report.out 2>/tmp/report.err || s=$?
    echo "exit $s$(cat /tmp/report.err)"
    [ "$1" == junit ] || cat /tmp/report.out
}
# The host name a JUnit classname carries, as the report cleans it.
host=$(hostname | tr -c "A-Za-z0-9\n-" _)
junit_cases() {  # the suite and each test case as junitparser reads them
    /usr/bin/python3 - /tmp/report.out <<'PY'
import sys
from junitparser import JUnitXml
for suite in JUnitXml.fromfile(sys.argv[1]):
    print(f"suite {suite.name} tests={suite.tests} failures={suite.failures} errors={suite.errors} skipped={suite.skipped}")
    for case in suite:
        print(case.name, case.classname, " ".join(type(r).__name__ + (f" {r.type}" if type(r).__name__ == "Error" else "")
                                              for r in case.result) or "pass")
PY
}
# run_to_end PLAN: stores it, starts the run, waits until the executor's end is
# seen (the service's next tick) and fetches the result: the archive's name.
run_to_end() {
    ctl set-test --force "$1" >/dev/null; ctl run-start >/dev/null
    for _ in $(seq 150); do [ "$(call getState)" != 3 ] || break; sleep 0.2; done
    ctl get-result | sed -n 's/^archive: //p'
}

check "text: exit 1 (an aborted run, a size of 0, a boot test short of its target, crash lines)" "$(cat <<EOF
exit 1
Ostrel run $stamp ($archive)
run: aborted (runAbort); executor starts 2, boots 1
executor: 2 start(s): 1) no end seen, 2) no end seen
VERDICT  KIND      REACHED    TARGET  TEST CASE [COMMAND]                       REASON
aborted  rounds          -         2  greeting [say hi]                         the run was aborted (runAbort) before this test case was done; 2 rounds asked of the executor
aborted  rounds          -         1  crash lines [sleep 3 1 crash short e2e<short&� 1 crash long e2e-long]  the run was aborted (runAbort) before this test case was done; 1 round asked of the executor
error    hours      0.00 h    0.00 h  warm-up [say warm]                        no target: a size of 0 is never reached
aborted  boots           1         3  reboots [sleep 60]                        the run was aborted (runAbort) before this test case was done; stopped at 1 of 3 boots
fail     lines           2         0  crash history                             2 crash-history line(s) collected during the run

crash history: 2 line(s) from ${archive%.zip}.db_history
  e2e<short&� 1
  e2e-long 1
result: error (0 pass, 1 fail, 1 error, 3 aborted, 0 unknown)
EOF
)" "$(report text | head -14 | sed -E 's/^run: started [^,]*, (aborted \(runAbort\)) after [0-9]+ s/run: \1/'; tail -1 /tmp/report.out)"

# The log's last line as the report gives it (the plan's control byte as U+FFFD).
log() { unzip -p "$archive" qav/kelbrun/kelbrun_log.txt; }
check "json: exit 1; each test case; run, counts, crash history, the executor log's size and last line" \
    "$(printf '%s\n' "exit 1" '[["greeting","rounds","rounds",2,null,2,"aborted"],["crash lines","rounds","rounds",1,null,1,"aborted"],["warm-up","hours","seconds",0,0,null,"error"],["reboots","boots","boots",3,1,null,"aborted"]]' \
       "{\"stamp\":\"$stamp\",\"cause\":\"runAbort\",\"verdict\":\"error\",\"counts\":{\"pass\":0,\"fail\":1,\"error\":1,\"aborted\":3,\"unknown\":0},\"count\":2,\"lines\":[\"e2e<short&� 1\",\"e2e-long 1\"],\"hv\":\"fail\",\"log\":[$(log | wc -c),$(log | tail -1 | sed 's/\x01/\xef\xbf\xbd/g' | jq -Rc .)]}")" \
    "$(report json | head -1; jq -c '[.testcases[] | [.name,.kind,.unit,.target,.reached,.asked,.verdict]]' /tmp/report.out
       jq -c '{stamp,cause:.run.end_cause,verdict,counts,count:.crash_history.count,lines:.crash_history.lines,hv:.crash_history.verdict,log:[.executor_log.size,.executor_log.tail[-1]]}' /tmp/report.out)"

check "junit: exit 1, read by junitparser: one suite, classnames by device and kind, a verdict per test case" "$(cat <<EOF
exit 1
suite QAV$stamp tests=5 failures=4 errors=1 skipped=0
greeting ostrel.$host.rounds Failure
crash lines ostrel.$host.rounds Failure
warm-up ostrel.$host.hours Error hours
reboots ostrel.$host.boots Failure
crash history ostrel.$host.history Failure
EOF
)" "$(report junit; junit_cases)"

check "lava: exit 1, one test set, a line per test case, measurements only of what was reached" "$(cat <<EOF
exit 1
lava-test-set start QAV$stamp
lava-test-case greeting --result fail
lava-test-case crash_lines --result fail
lava-test-case warm-up --result fail --measurement 0 --units seconds
lava-test-case reboots --result fail --measurement 1 --units boots
lava-test-case crash_history --result fail --measurement 2 --units lines
lava-test-case run --result fail --measurement N --units seconds
lava-test-set stop
EOF
)" "$(report lava | sed -E 's/^(lava-test-case run .*--measurement )[0-9]+/\1N/')"

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
check "SIGSEGV: exit 1, every test case short of its target an error, the executor's end named" "$(cat <<EOF
exit 1
["error","error","error"] "SIGSEGV" true {"pass":1,"fail":0,"error":4,"aborted":0,"unknown":0}
exit 1
suite $(basename "$segv" .zip) tests=5 failures=0 errors=4 skipped=0
executor SIGSEGV ostrel.$host.run Error executor SIGSEGV
first ostrel.$host.rounds Error SIGSEGV
exit 1
lava-test-case crash_history_2 --result fail
lava-test-case executor_SIGSEGV --result fail
lava-test-case crash_history --result pass --measurement 0 --units lines
EOF
)" "$(report json "$segv" | head -1; jq -c '[.testcases[].verdict]' /tmp/report.out | tr '\n' ' '
       jq -c '.run.error, (.run.configuration | test("/sillet set .* [(]exit 0[)]$"))' /tmp/report.out | tr '\n' ' '
       jq -c .counts /tmp/report.out
       report junit "$segv"; junit_cases | sed -n 1,3p
       report lava "$segv" | grep -E '^exit|executor_|crash_history')"
check "an executor that ran its rounds and exited 0: its round test case passes, exit 0" \
    "$(printf '%s\n' "exit 0" '["pass"]')" "$(report json "$ok" | head -1; jq -c '[.testcases[].verdict]' /tmp/report.out)"

# The same results with an edited record (the executor exited 3), and with none.
mkdir -p /tmp/r && cp "$segv" /tmp/r/QAVexit3.zip && cp "${segv%.zip}.db_history" /tmp/r/QAVexit3.db_history
jq '.executors[0].end = {"exit": 3}' "${segv%.zip}.run.json" > /tmp/r/QAVexit3.run.json
cp "$ok" /tmp/r/QAVold.zip
check "exit 3 is an error of the run; no record: the plan's counters alone, as from an older build, not proven (exit 4)" "$(cat <<EOF
exit 1
"exit 3"
exit 4
run: no run record /tmp/r/QAVold.run.json beside the archive (an older build, or it was not copied): verdicts from the plan's counters alone
["unknown"]
EOF
)" "$(report json /tmp/r/QAVexit3.zip | head -1; jq -c .run.error /tmp/report.out
       report text /tmp/r/QAVold.zip | sed -n '1p;3p'; report json /tmp/r/QAVold.zip >/dev/null; jq -c '[.testcases[].verdict]' /tmp/report.out)"
finish
