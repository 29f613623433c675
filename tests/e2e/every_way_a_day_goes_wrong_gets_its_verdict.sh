# Every way a lab's day goes wrong, made with the real service and the executor
# stand-in, gets a verdict that says so: a row per situation, each read back from
# `ostrelctl report --format json` (the run's verdict, its reason, each test case's
# verdict) and from the exit status of the summary of its folder.
source "$(dirname "$0")/lib.sh"
rows=/tmp/rows
mkdir -p "$rows"
start_service
ctl boot-completed >/dev/null

wait_for_state() {
    for _ in $(seq 300); do [ "$(ctl state)" == "$1" ] && return 0; sleep 0.1; done
    echo "FAIL: the planner never reached $1 (it is in $(ctl state))"; tail -20 "$SERVICE_LOG"; exit 1
}
# run_plan ROW PLAN: stores PLAN as it is and starts it; the names run-start printed
# go to $rows/ROW.started.
run_plan() {
    printf '%s' "$2" | ctl set-test --force - >/dev/null
    ctl run-start > "$rows/$1.started"
    wait_for_state RUNNING
}
# collect ROW: packs the ended run and copies the archive and the files beside it
# (the get-result lines say which) into $rows/ROW/.
collect() {
    echo "collecting $1"
    wait_for_state COMPLETING
    ctl get-result > "$rows/$1.result"
    mkdir -p "$rows/$1"
    for kind in archive history record; do
        local path; path=$(sed -n "s/^$kind: //p" "$rows/$1.result")
        [ "$path" == none ] || cp "$path" "$rows/$1/"
    done
}
# The executor of the current run (the stand-in's own process).
executor_pid() { pgrep -nf '^bash /vendor/bin/kelbrun'; }
# reboot: the service and every process group of its run end, as a device's reboot
# does; a new service on the same /data, then boot completed.
reboot() { stop_service KILL; start_service; ctl boot-completed >/dev/null; }

# 1: an unplanned reboot in the middle of a time test case.
run_plan reboot "$(plan "$(testcase soak "sleep 600 1" 1 time)")"
reboot
ctl run-abort >/dev/null
collect reboot

# 2: a round test case aborted before its executor finished.
run_plan aborted "$(plan "$(testcase rounds "sleep 600 1" 1)")"
ctl run-abort >/dev/null
collect aborted

# 3: nothing selected, stored with --force; then a plan set-test refuses, and
# run-start runs the one stored before.
run_plan nothing "$(plan "$(testcase off "say x" 1 round false)")"
ctl run-abort >/dev/null || true  # the executor may have ended already
collect nothing
ctl set-test - <<<"$(plan "$(testcase zero "say x" 0)")" >/dev/null 2>&1 || true
ctl run-start > "$rows/again.started"
ctl run-abort >/dev/null || true
wait_for_state COMPLETING
ctl get-result >/dev/null

# 4: targets that wrap or are negative.
run_plan targets "$(plan "$(testcase wraps "sleep 600 1" 600000 time)" "$(testcase negative "sleep 600 1" -1 boot)")"
ctl run-abort >/dev/null || true
collect targets

# 5, 6: the executor killed by SIGSYS, then one by a real-time signal, while a
# time test case and a round test case run: its end is seen at the next tick.
for signal in SYS RTMIN+8; do
    row=signal-${signal%+*}
    run_plan "$row" "$(plan "$(testcase soak "sleep 600 1" 1 time)" "$(testcase rounds "sleep 600 1" 1)")"
    for _ in $(seq 50); do [ -n "$(executor_pid)" ] && break; sleep 0.1; done
    kill -s "$signal" "$(executor_pid)"
    collect "$row"
done

# 7: no record beside the archive (not copied, or an older build): the aborted
# round test case is then not proven either way.
mkdir -p "$rows/norecord"
cp "$rows/aborted"/*.zip "$rows/aborted"/*.db_history "$rows/norecord/"
stop_service

# ROW|RUN VERDICT|THE RUN'S REASON (a part of it)|EACH TEST CASE'S VERDICT|THE SUMMARY'S EXIT STATUS
while IFS='|' read -r row verdict reason cases summary; do
    archive=$(ls "$rows/$row"/QAV*.zip)
    status=0; ctl report --format json "$archive" > "$rows/$row.json" || status=$?
    fleet=0; ctl report "$rows/$row" > /dev/null || fleet=$?
    check "$row: $verdict ($reason), test cases $cases, summary exit $summary" \
        "$verdict yes $cases $summary $status" \
        "$(jq -r .verdict "$rows/$row.json") $(jq -r --arg r "$reason" '.reason | contains($r) | if . then "yes" else "no: \(.)" end' "$rows/$row.json") $(jq -r '[.testcases[].verdict] | if length == 0 then "-" else join(",") end' "$rows/$row.json") $fleet $(case $verdict in pass) echo 0;; unknown) echo 4;; *) echo 1;; esac)"
done <<EOF
reboot|fail|unplanned reboot(s), the first at|fail|1
aborted|aborted|the run was aborted (runAbort) before this test case was done|aborted|1
nothing|error|nothing was selected|-|1
targets|error|no target: 600000 hours is more than the counter holds|error,error|1
signal-SYS|error|the executor was killed by SIGSYS (signal 31), a signal the service did not send|error,error|1
signal-RTMIN|error|the executor was killed by SIGRTMIN+10 (signal 42)|error,error|1
norecord|unknown|there is no run record ($rows/norecord/|unknown|4
EOF

check "a test case the executor's death leaves undone: why the planner cannot blame one" "yes" \
    "$(jq -r '.testcases[0].reason | contains("one executor runs every selected test case, so which one was running cannot be told")' "$rows/signal-SYS.json" | sed 's/true/yes/')"
check "run-start names the test cases it starts: none for nothing selected, and so again after a refused set-test (the plan before runs), then two" \
    "started 0 test case(s) runStart: ok|started 0 test case(s) runStart: ok|started 2 test case(s): wraps negative runStart: ok" \
    "$(for row in nothing again targets; do tr '\n' ' ' < "$rows/$row.started" | sed 's/  */ /g; s/ $//'; echo; done | paste -sd'|')"
check "get-result names the archive, the history copy and the record" "yes yes yes" \
    "$(for k in archive history record; do yes_if grep -Eq "^$k: /data/vendor/qav/results/QAV[0-9_]+\.(zip|db_history|run\.json)$" "$rows/reboot.result"; done | tr '\n' ' ' | sed 's/ $//')"
start_service; ctl boot-completed >/dev/null
retry=0; ctl retry "$(ls "$rows"/aborted/QAV*.zip)" > "$rows/retry.out" || retry=$?
check "retry takes the aborted test case (not only failed and erred ones) and says why" "0 rounds yes" \
    "$retry $(ctl get-test | jq -r '[.testcases[] | select(.select) | .name] | join(",")') $(yes_if grep -q '^  aborted  rounds: the run was aborted' "$rows/retry.out")"
stop_service

# An incomplete summary: a folder that cannot be read, a path too long to reach and
# a link among the archives (never followed inside a folder).
mkdir -p "$rows/fleet/locked" && cp "$rows"/aborted/* "$rows/fleet/"
ln -s /etc/passwd "$rows/fleet/QAV00000000_000001.zip"
chmod -R a+rX "$rows" && chmod 700 "$rows/fleet/locked"
python3 -c '
import os, sys
os.chdir(sys.argv[1])
for _ in range(20):
    os.mkdir("d" * 250)
    os.chdir("d" * 250)' "$rows/fleet"
status=0; as_nobody "$OSTRELCTL" report --format json "$rows/fleet" > "$rows/fleet.json" || status=$?
check "a summary with unreadable inputs is incomplete: its headline, exit 1 (a run failed) and each input with its reason" \
    "1 aborted, incomplete yes yes yes" \
    "$status $(jq -r .headline "$rows/fleet.json") $(jq -r '[.bad_archives[].reason] | any(startswith("cannot read the folder: Permission denied"))' "$rows/fleet.json" | sed 's/true/yes/') $(jq -r '[.bad_archives[].reason] | any(endswith("File name too long"))' "$rows/fleet.json" | sed 's/true/yes/') $(jq -r '[.bad_archives[].reason] | any(. == "a symbolic link, not followed inside a folder")' "$rows/fleet.json" | sed 's/true/yes/')"
rm "$rows"/fleet/QAV2*  # the aborted run; the link stays
cp "$rows"/norecord/* "$rows/fleet/"
status=0; as_nobody "$OSTRELCTL" report "$rows/fleet" > "$rows/fleet.txt" || status=$?
check "no run failed but inputs were unreadable: exit 4 and an incomplete headline" "4 yes" \
    "$status $(yes_if grep -q '^Ostrel runs: 1 read, 0 failed, 3 not readable: incomplete$' "$rows/fleet.txt")"
finish
