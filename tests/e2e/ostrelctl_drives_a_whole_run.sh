# ostrelctl against the running service: a whole run from boot to result,
# watched to its end, and the client's exit statuses and messages.
source "$(dirname "$0")/lib.sh"

check "no service: a few seconds' wait, a line after the first, then exit 3 and the reason" \
    "$(printf '%s\n' "Waited one second for vendor.brevane.hardware.ostrel@2.0::IOstrel/default" \
        "ostrelctl: the Ostrel service (IOstrel/default) is not running or cannot be reached" "exit 3")" \
    "$(ctl state 2>&1; echo "exit $?")"
check "--help explains a run's life; an unknown command: exit 2" "yes 2" \
    "$(yes_if grep '^The life of a run:' <<<"$(ctl --help)") $(status_of ctl frobnicate)"
# Every command of the help answers its own --help with no bus at all, and the
# README names it.
commands=$(ctl --help | sed -nE 's/^  ([a-z][a-z-]+)( .*)?$/\1/p')
unanswered=$(for c in $commands; do
    out=$(DBUS_SYSTEM_BUS_ADDRESS=unix:path=/nonexistent "$OSTRELCTL" "$c" --help 2>&1) &&
        [[ "$out" == "usage: ostrelctl $c"* ]] && grep -q "\`$c" "$OSTREL_SOURCE_DIR/README.md" || echo "$c"
done)
check "every command's --help works with no bus, and the README names it" "17 commands: " \
    "$(wc -w <<<"$commands") commands: $unanswered"

ctl state >/tmp/late.out 2>&1 &
late=$!
sleep 1.5
start_service
late_status=0
wait $late || late_status=$?
check "a client that calls as the service starts is answered" "0 IDLE" "$late_status $(tail -1 /tmp/late.out)"
check "boot-completed, then --json state" 'bootCompleted: ok {"method":"getState","state":"PREPARING","value":1}' \
    "$(ctl boot-completed) $(ctl --json state)"
check "get-config prints the configuration list as JSON, set-config takes it from standard input" \
    "default setConfig: ok" "$(ctl get-config | tee /tmp/config.json | jq -r .id) $(ctl set-config < /tmp/config.json)"
echo '{"configs": [' > /tmp/broken.json
check "set-config with a file that is not JSON: exit 2 and the reason, nothing sent" \
    "2 ostrelctl: set-config: /tmp/broken.json is not JSON (or nested deeper than 256 levels); get-config prints the list to edit (--force sends it as it is)" \
    "$(status_of ctl set-config /tmp/broken.json) $(ctl set-config /tmp/broken.json 2>&1)"
ctl --log set-config /tmp/config.json 2>/tmp/log.short >/dev/null
ctl --log --verbose set-config /tmp/config.json 2>/tmp/log.whole >/dev/null
whole=$(wc -l </tmp/log.whole)
check "--log cuts a long reply log to its first 20 and last 10 lines; --verbose shows it whole" \
    "yes $(sed -n 1,20p /tmp/log.whole)
... $((whole - 30)) lines of the reply log left out (--verbose shows them)
$(tail -10 /tmp/log.whole)" "$(yes_if test "$whole" -gt 40) $(cat /tmp/log.short)"
check "set-test from a file that cannot be read: exit 2 and the reason" \
    "2 ostrelctl: cannot read /nonexistent.json: No such file or directory" \
    "$(status_of ctl set-test /nonexistent.json) $(ctl set-test /nonexistent.json 2>&1)"
head -c 65537 /dev/zero > /tmp/tester.bin
check "install-testers refuses a file over 65536 bytes" \
    "ostrelctl: /tmp/tester.bin holds 65537 bytes; installTesters carries at most 65536" \
    "$(ctl install-testers /tmp/tester.bin 2>&1)"

plan "$(testcase greeting "say hello" 2)" "$(testcase crash "sleep 1 1 crash short e2e-crash" 1)" \
     "$(testcase unselected "say never" 1 round false)" > /tmp/plan.json
check "set-test from a file; the reply log on request, on standard error; run-start names what it started" \
    "$(printf 'setTest: ok\nostrel: getTest\nostrel: test=%s\nstarted 2 test case(s):\n  greeting\n  crash\nrunStart: ok' "$(cat /tmp/plan.json)")" \
    "$(ctl set-test /tmp/plan.json; ctl --log --verbose get-test 2>&1 >/dev/null; ctl run-start)"

# The crash line comes a second after the start, once the monitor watches; the
# next tick (10 s) reaps the finished executor and ends the run.
status=0
timeout 60 "$OSTRELCTL" --interval 0.5 watch > /tmp/watch.out || status=$?
check "watch: a time stamp and the run's time (not known exactly without a time-based test case) per update, a line per selected test case, ends in COMPLETING with exit 0" \
    "$(printf '0 yes\nstate: RUNNING\n  [------------------------------]    -  2 rounds, run by the executor  greeting\n  [------------------------------]    -  1 round, run by the executor  crash\nstate: COMPLETING')" \
    "$status $(yes_if grep -Eq '^at [0-9]{2}:[0-9]{2}:[0-9]{2}, watched [0-9]+ s, run time at least [0-9]+ s$' <(head -1 /tmp/watch.out))
$(grep -v '^at ' /tmp/watch.out | head -3; grep '^state:' /tmp/watch.out | tail -1)"

archive=$(ctl get-result | tee /tmp/result.out | sed -n 's/^archive: //p')
history=$(sed -n 's/^history: //p' /tmp/result.out)
check "get-result prints the archive and the history copy" yes "$(yes_if grep -Eq "$RESULT_RE" <<<"$archive, $history")"
check "the executor's log in the archive shows both test cases ran" "yes" \
    "$(yes_if grep -q "say hello, round 2 of 2" <<<"$(unzip -p "$archive" '*kelbrun_log.txt')")"
check "the crash line was collected into the history copy" "e2e-crash 1" "$(cat "$history")"
check "a second get-result: exit 1, back in PREPARING" "1 PREPARING" "$(status_of ctl get-result) $(ctl state)"

# The README's plan example, as written: no problem, and the executor stand-in runs its words.
sed -n '/^The plan document/,/^```$/p' "$OSTREL_SOURCE_DIR/README.md" | sed '1,3d;$d' > /tmp/readme.json
checked=$(status_of ctl check-plan /tmp/readme.json)
started=$(ctl set-test /tmp/readme.json >/dev/null; ctl run-start | tr '\n' ' ')
sleep 1
first=$(head -1 /data/vendor/qav/kelbrun/kelbrun_log.txt | sed -E 's/ [0-9]+, group [0-9]+//')
check "the README's plan: check-plan finds nothing; stored and started, the executor takes every word" \
    "0 started 2 test case(s):   cpu load   reboot runStart: ok  kelbrun: pid, arguments: stress 2 3 sleep 60 3 no" \
    "$checked $started $first $(yes_if grep -q 'unknown word\|missing' /data/vendor/qav/kelbrun/kelbrun_log.txt)"
ctl run-abort >/dev/null; ctl get-result >/dev/null || true

# Changes are confirmed: a plan with problems is refused unless forced; a plan
# without a state is stored, and run-start then says that nothing started.
jq -c 'del(.current_state)' /tmp/plan.json > /tmp/nostate.json
check "set-test refuses a plan with problems (exit 2, check-plan's lines); --force stores it" "$(cat <<'EOF'
2 ostrelctl: set-test: the plan was not stored (--force stores it as it is):
$.current_state: missing; the planner writes it only when it is there (without it the planner falls to IDLE): add "current_state": 1
setTest: ok
EOF
)" "$(status_of ctl set-test /tmp/nostate.json) $(ctl set-test /tmp/nostate.json 2>&1; ctl set-test --force /tmp/nostate.json)"
check "run-start after it: exit 1 and why nothing started" \
    "1 ostrelctl: run-start: nothing started: the planner is in IDLE: the stored plan has no state; see check-plan" \
    "$(status_of ctl run-start) $(ctl run-start 2>&1 >/dev/null)"

# watch across a reboot (the service stopped and started again): it waits for the
# service and exits 0 when the run ends; with no run to watch it exits 1. The
# restart drops the plan without a state, as the store does with such a file.
stop_service; start_service; ctl boot-completed >/dev/null
check "watch with no run: exit 1" 1 "$(status_of ctl watch)"
plan "$(testcase pause "sleep 1" 1)" > /tmp/short.json
ctl set-test /tmp/short.json >/dev/null; ctl run-start >/dev/null
"$OSTRELCTL" --interval 0.5 watch > /tmp/rewatch.out 2>&1 & watcher=$!
sleep 1; stop_service; sleep 1; start_service; ctl boot-completed >/dev/null
rewatch=0; wait $watcher || rewatch=$?
check "watch across a restart of the service: waits for it, exit 0 at the run's end" \
    "0 yes state: COMPLETING" \
    "$rewatch $(yes_if grep -q 'the service went away; waiting up to 120 s' /tmp/rewatch.out) $(grep '^state:' /tmp/rewatch.out | tail -1)"
finish
