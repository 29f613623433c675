# ostrelctl against the running service: a whole run from boot to result,
# watched to its end, and the client's exit statuses and messages.
source "$(dirname "$0")/lib.sh"
ctl() { "$OSTRELCTL" "$@"; }
status_of() { local s=0; "$@" >/dev/null 2>&1 || s=$?; echo "$s"; }

check "no service: exit 3" "3" "$(status_of ctl state)"
check "no service: the reason" \
    "ostrelctl: the Ostrel service (IOstrel/default) is not running or cannot be reached" \
    "$(ctl state 2>&1)"
check "--help explains a run's life" "yes" \
    "$(ctl --help | grep '^The life of a run:' >/dev/null && echo yes)"
check "an unknown command: exit 2" "2" "$(status_of ctl frobnicate)"

start_service
check "boot-completed" "bootCompleted: ok" "$(ctl boot-completed)"
check "--json state" '{"method":"getState","state":"PREPARING","value":1}' "$(ctl --json state)"
ctl get-config > /tmp/config.json
check "get-config prints the configuration list as JSON" "default" "$(jq -r .id /tmp/config.json)"
check "set-config from standard input" "setConfig: ok" "$(ctl set-config < /tmp/config.json)"
check "set-test from a file that cannot be read: exit 2 and the reason" \
    "ostrelctl: cannot read /nonexistent.json: No such file or directory" \
    "$(ctl set-test /nonexistent.json 2>&1)"
head -c 65537 /dev/zero > /tmp/tester.bin
check "install-testers refuses a file over 65536 bytes" \
    "ostrelctl: /tmp/tester.bin holds 65537 bytes; installTesters carries at most 65536" \
    "$(ctl install-testers /tmp/tester.bin 2>&1)"

cat > /tmp/plan.json <<'PLAN'
{"not_set":false,"current_state":1,"run_start":false,"run_finished":false,"testcases":[
 {"name":"greeting","select":true,"command":"say hello","testcase_value":2,"isRound":true,"testcase_current_time":0,"testcase_target_time":0,"testcase_current_round":0,"testcase_target_round":0},
 {"name":"crash","select":true,"command":"sleep 1 1 crash short e2e-crash","testcase_value":1,"isRound":true,"testcase_current_time":0,"testcase_target_time":0,"testcase_current_round":0,"testcase_target_round":0},
 {"name":"unselected","select":false,"command":"say never","testcase_value":1,"isRound":true,"testcase_current_time":0,"testcase_target_time":0,"testcase_current_round":0,"testcase_target_round":0}]}
PLAN
check "set-test from a file" "setTest: ok" "$(ctl set-test /tmp/plan.json)"
check "the reply log on request, on standard error" \
    "$(printf 'ostrel: getState\nostrel: state=PREPARING\nostrel: getTest\nostrel: test=%s' "$(jq -c . /tmp/plan.json)")" \
    "$(ctl state >/dev/null; ctl --log get-test 2>&1 >/dev/null)"
check "run-start" "runStart: ok" "$(ctl run-start)"

# The crash line comes a second after the start: the monitor thread starts only
# after the executor, and a file that already exists then is watched for changes
# rather than read. The executor is done soon after; the next tick (10 s) reaps it
# and ends the run.
status=0
timeout 60 "$OSTRELCTL" --interval 0.5 watch > /tmp/watch.out || status=$?
check "watch ends once the run leaves RUNNING, exit 0" "0" "$status"
check "watch starts in RUNNING with one bar per selected test case" \
    "$(printf 'state: RUNNING\n  [..............................]   0%%  0/2 rounds (run by the executor, not counted)  greeting\n  [..............................]   0%%  0/1 rounds (run by the executor, not counted)  crash')" \
    "$(head -3 /tmp/watch.out)"
check "watch ends showing COMPLETING" "state: COMPLETING" "$(grep '^state:' /tmp/watch.out | tail -1)"

ctl get-result > /tmp/result.out
check "get-result prints the archive and the history copy" "yes" \
    "$(grep -qE '^archive: /data/vendor/qav/results/QAV[0-9_]+\.zip$' /tmp/result.out &&
       grep -qE '^history: /data/vendor/qav/results/QAV[0-9_]+\.db_history$' /tmp/result.out && echo yes)"
archive=$(sed -n 's/^archive: //p' /tmp/result.out)
history=$(sed -n 's/^history: //p' /tmp/result.out)
check "the archive holds the executor's log" "yes" \
    "$(unzip -l "$archive" | grep 'kelbrun_log.txt' >/dev/null && echo yes)"
check "the executor's log in the archive shows both test cases ran" "yes" \
    "$(unzip -p "$archive" '*kelbrun_log.txt' | grep "say hello, round 2 of 2" >/dev/null && echo yes)"
check "the crash line was collected into the history copy" "e2e-crash 1" "$(cat "$history")"
check "a second get-result: exit 1" "1" "$(status_of ctl get-result)"
check "back in PREPARING" "PREPARING" "$(ctl state)"
check "the service process never died" "yes" "$(service_alive && echo yes)"
finish
