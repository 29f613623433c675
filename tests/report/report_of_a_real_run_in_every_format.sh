# A real run in the device sandbox (a round test, a time test that reaches its
# target, a boot test aborted after one boot of three, two crash lines), its
# result fetched, then reported offline in each format and read back.
source "$(dirname "$0")/../e2e/lib.sh"
ctl() { "$OSTRELCTL" "$@"; }
HISTORY_COPY=/data/vendor/qav/data/db_history

start_service
ctl boot-completed >/dev/null
# The short crash line carries XML's special characters and a control byte.
# The crashes wait 3 s: the monitor starts after the executor, and the executor
# started again after the boot must not reach them before the abort.
cat > /tmp/plan.json <<'PLAN'
{"not_set":false,"current_state":1,"run_start":false,"run_finished":false,"testcases":[
 {"name":"greeting","select":true,"command":"say hi","testcase_value":2,"isRound":true,"testcase_current_time":0,"testcase_target_time":0,"testcase_current_round":0,"testcase_target_round":0},
 {"name":"crash lines","select":true,"command":"sleep 3 1 crash short e2e<short&\u0001 1 crash long e2e-long","testcase_value":1,"isRound":true,"testcase_current_time":0,"testcase_target_time":0,"testcase_current_round":0,"testcase_target_round":0},
 {"name":"warm-up","select":true,"command":"say warm","testcase_value":0,"isRound":false,"testcase_current_time":0,"testcase_target_time":0,"testcase_current_round":0,"testcase_target_round":0},
 {"name":"reboots","select":true,"command":"sleep 60","testcase_value":3,"isRound":true,"isBootTest":true,"testcase_current_time":0,"testcase_target_time":0,"testcase_current_round":0,"testcase_target_round":0},
 {"name":"not selected","select":false,"command":"say never","testcase_value":1,"isRound":true,"testcase_current_time":0,"testcase_target_time":0,"testcase_current_round":0,"testcase_target_round":0}]}
PLAN
ctl set-test /tmp/plan.json >/dev/null
ctl run-start >/dev/null
for _ in $(seq 100); do
    [ "$(wc -l < "$HISTORY_COPY" 2>/dev/null || echo 0)" -ge 2 ] && break
    sleep 0.2
done
check "both crash lines collected" "2" "$(wc -l < "$HISTORY_COPY")"
# A reboot: one boot of the boot test is counted, then the run is aborted.
stop_service
start_service
ctl boot-completed >/dev/null
ctl run-abort >/dev/null
ctl get-result > /tmp/result.out
archive=$(sed -n 's/^archive: //p' /tmp/result.out)
stamp=$(basename "$archive" .zip); stamp=${stamp#QAV}
check "the live plan's counters are reset after get-result" "0" \
    "$(ctl get-test | jq '.testcases[3].testcase_current_round')"

# Offline: no service, and a bus address that leads nowhere.
stop_service
report() {
    local s=0
    DBUS_SYSTEM_BUS_ADDRESS=unix:path=/nonexistent ctl report "$@" > /tmp/report.out 2>/tmp/report.err || s=$?
    echo "$s"
}

check "text: exit 1 (a boot test short of its target, crash lines)" "1" "$(report "$archive")"
cp /tmp/report.out /tmp/report.txt
check "text: the verdict table" "$(cat <<EOF
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
EOF
)" "$(head -11 /tmp/report.txt)"
sed 's/^/  | /' /tmp/report.txt
check "text: the result line" "result: fail (1 pass, 2 fail, 2 unknown)" "$(tail -1 /tmp/report.txt)"
check "nothing on standard error" "" "$(cat /tmp/report.err)"

check "json: exit 1" "1" "$(report --format json "$archive")"
check "json: each test case" \
    '[["greeting","rounds","rounds",2,null,2,"unknown"],["crash lines","rounds","rounds",1,null,1,"unknown"],["warm-up","hours","seconds",0,0,null,"pass"],["reboots","boots","boots",3,1,null,"fail"]]' \
    "$(jq -c '[.testcases[] | [.name,.kind,.unit,.target,.reached,.asked,.verdict]]' /tmp/report.out)"
check "json: run, counts and crash history" \
    "{\"stamp\":\"$stamp\",\"verdict\":\"fail\",\"counts\":{\"pass\":1,\"fail\":2,\"unknown\":2},\"count\":2,\"lines\":[\"e2e<short&� 1\",\"e2e-long 1\"],\"hv\":\"fail\"}" \
    "$(jq -c '{stamp,verdict,counts,count:.crash_history.count,lines:.crash_history.lines,hv:.crash_history.verdict}' /tmp/report.out)"
unzip -p "$archive" qav/kelbrun/kelbrun_log.txt > /tmp/kelbrun_log.txt
check "json: the executor log's size and last line" \
    "$(stat -c %s /tmp/kelbrun_log.txt) $(tail -1 /tmp/kelbrun_log.txt | jq -Rc .)" \
    "$(jq -c '.executor_log | "\(.size) \(.tail[-1] | tojson)"' -r /tmp/report.out)"

check "junit: exit 1" "1" "$(report --format junit "$archive")"
check "junit: read by junitparser, one suite, a verdict per test case" "$(cat <<EOF
suite QAV$stamp tests=5 failures=2 skipped=2
greeting Skipped
crash lines Skipped
warm-up pass
reboots Failure stopped at 1 of 3 boots
crash history Failure 2 crash-history line(s) collected during the run
crash history out ['e2e<short&� 1', 'e2e-long 1']
EOF
)" "$(/usr/bin/python3 - /tmp/report.out <<'PY'
import sys
from junitparser import JUnitXml
suites = list(JUnitXml.fromfile(sys.argv[1]))
for suite in suites:
    print(f"suite {suite.name} tests={suite.tests} failures={suite.failures} skipped={suite.skipped}")
    for case in suite:
        results = [f"{type(r).__name__}" + (f" {r.message}" if type(r).__name__ == "Failure" else "")
                   for r in case.result]
        print(case.name, " ".join(results) or "pass")
        if case.name == "crash history":
            print("crash history out", case.system_out.splitlines())
PY
)"

check "lava: exit 1" "1" "$(report --format lava "$archive")"
check "lava: one lava-test-case line per test case" "$(cat <<'EOF'
lava-test-case greeting --result unknown --measurement 2 --units rounds
lava-test-case crash_lines --result unknown --measurement 1 --units rounds
lava-test-case warm-up --result pass --measurement 0 --units seconds
lava-test-case reboots --result fail --measurement 1 --units boots
lava-test-case crash_history --result fail --measurement 2 --units lines
EOF
)" "$(cat /tmp/report.out)"
finish
