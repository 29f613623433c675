# A real run in the device sandbox (a round test, a time test that reaches its
# target, a boot test aborted after one boot of three, two crash lines), its
# result fetched, then reported offline in each format and read back.
source "$(dirname "$0")/../e2e/lib.sh"

start_service
ctl boot-completed >/dev/null
# A crash line with XML's special characters and a control byte; the crashes wait
# 3 s so that the executor started again after the reboot is aborted before them.
plan "$(testcase greeting "say hi" 2)" \
     "$(testcase "crash lines" 'sleep 3 1 crash short e2e<short&\u0001 1 crash long e2e-long' 1)" \
     "$(testcase warm-up "say warm" 0 time)" "$(testcase reboots "sleep 60" 3 boot)" \
     "$(testcase "not selected" "say never" 1 round false)" > /tmp/plan.json
ctl set-test /tmp/plan.json >/dev/null
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

# report FORMAT: offline: the exit status, standard error, the report (JUnit's stays in /tmp/report.out).
report() {
    local s=0
    DBUS_SYSTEM_BUS_ADDRESS=unix:path=/nonexistent ctl report --format "$1" "$archive" \
        > /tmp/report.out 2>/tmp/report.err || s=$?
    echo "exit $s$(cat /tmp/report.err)"
    [ "$1" == junit ] || cat /tmp/report.out
}

check "text: exit 1 (a boot test short of its target, crash lines), the verdict table, the result line" "$(cat <<EOF
exit 1
Ostrel run $stamp ($archive): fail
VERDICT  KIND      REACHED    TARGET  TEST CASE [COMMAND]
unknown  rounds          -         2  greeting [say hi] (2 rounds asked of the executor)
unknown  rounds          -         1  crash lines [sleep 3 1 crash short e2e<short&� 1 crash long e2e-long] (1 round asked of the executor)
pass     hours      0.00 h    0.00 h  warm-up [say warm]
fail     boots           1         3  reboots [sleep 60]
fail     lines           2         0  crash history

crash history: 2 line(s) from ${archive%.zip}.db_history
  e2e<short&� 1
  e2e-long 1
result: fail (1 pass, 2 fail, 2 unknown)
EOF
)" "$(report text | head -12; tail -1 /tmp/report.out)"

# The log's last line as the report gives it (the plan's control byte as U+FFFD).
log() { unzip -p "$archive" qav/kelbrun/kelbrun_log.txt; }
check "json: exit 1; each test case; run, counts, crash history, the executor log's size and last line" \
    "$(printf '%s\n' "exit 1" '[["greeting","rounds","rounds",2,null,2,"unknown"],["crash lines","rounds","rounds",1,null,1,"unknown"],["warm-up","hours","seconds",0,0,null,"pass"],["reboots","boots","boots",3,1,null,"fail"]]' \
       "{\"stamp\":\"$stamp\",\"verdict\":\"fail\",\"counts\":{\"pass\":1,\"fail\":2,\"unknown\":2},\"count\":2,\"lines\":[\"e2e<short&� 1\",\"e2e-long 1\"],\"hv\":\"fail\",\"log\":[$(log | wc -c),$(log | tail -1 | sed 's/\x01/\xef\xbf\xbd/g' | jq -Rc .)]}")" \
    "$(report json | head -1; jq -c '[.testcases[] | [.name,.kind,.unit,.target,.reached,.asked,.verdict]]' /tmp/report.out
       jq -c '{stamp,verdict,counts,count:.crash_history.count,lines:.crash_history.lines,hv:.crash_history.verdict,log:[.executor_log.size,.executor_log.tail[-1]]}' /tmp/report.out)"

check "junit: exit 1, read by junitparser, one suite, a verdict and output per test case" "$(cat <<EOF
exit 1
suite QAV$stamp tests=5 failures=2 skipped=2
greeting Skipped command: say hi rounds are run out by the executor and not counted; 2 asked
crash lines Skipped command: sleep 3 1 crash short e2e<short&� 1 crash long e2e-long rounds are run out by the executor and not counted; 1 asked
warm-up pass command: say warm reached 0 of 0 seconds
reboots Failure stopped at 1 of 3 boots command: sleep 60 stopped at 1 of 3 boots
crash history Failure 2 crash-history line(s) collected during the run e2e<short&� 1 e2e-long 1
EOF
)" "$(report junit; /usr/bin/python3 - /tmp/report.out <<'PY'
import sys
from junitparser import JUnitXml
for suite in JUnitXml.fromfile(sys.argv[1]):
    print(f"suite {suite.name} tests={suite.tests} failures={suite.failures} skipped={suite.skipped}")
    for case in suite:
        print(case.name, " ".join(type(r).__name__ + (f" {r.message}" if type(r).__name__ == "Failure" else "")
                                  for r in case.result) or "pass", *(case.system_out or "").splitlines())
PY
)"

check "lava: exit 1, one lava-test-case line per test case" "$(cat <<'EOF'
exit 1
lava-test-case greeting --result unknown --measurement 2 --units rounds
lava-test-case crash_lines --result unknown --measurement 1 --units rounds
lava-test-case warm-up --result pass --measurement 0 --units seconds
lava-test-case reboots --result fail --measurement 1 --units boots
lava-test-case crash_history --result fail --measurement 2 --units lines
EOF
)" "$(report lava)"
finish
