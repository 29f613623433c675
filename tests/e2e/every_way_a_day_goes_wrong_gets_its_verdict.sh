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

# Each row read back: the run's verdict, its reason, each test case's verdict and
# reason, the report's exit status and the summary's of its folder; then what run-start
# and get-result said; against golden/every_way_a_day_goes_wrong.txt.
source "$(dirname "$0")/../report/like.sh"
placeholders() {
    sed -E -e "s#$rows/#<rows>/#g; s/QAV[0-9]{8}_[0-9]{6}/QAV<stamp>/g" \
        -e 's/[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}Z/<time>/g; s/stopped at [0-9]+ of/stopped at <n> of/g'
}
for row in reboot aborted nothing targets signal-SYS signal-RTMIN norecord; do
    status=0; ctl report --format json "$rows/$row"/QAV*.zip > "$rows/$row.json" || status=$?
    fleet=0; ctl report "$rows/$row" > /dev/null || fleet=$?
    echo "$row: exit $status, summary exit $fleet"
    jq -r '"  \(.verdict): \(.reason)", (.testcases[] | "  \(.id) \(.verdict): \(.reason)")' "$rows/$row.json"
done | like "$(dirname "$0")/golden/every_way_a_day_goes_wrong.txt" "every row's verdict and reason, each test case's, the exit statuses"
cat "$rows"/{nothing,again,targets}.started "$rows/reboot.result" |
    like "$(dirname "$0")/golden/run_start_and_get_result.txt" \
    "run-start names the test cases it starts (none for nothing selected, and so again after a refused set-test); get-result names the archive, history copy and record"
# retry takes the aborted test case (not only failed and erred ones) and says why.
start_service; ctl boot-completed >/dev/null
retry=0; ctl retry "$(ls "$rows"/aborted/QAV*.zip)" > "$rows/retry.out" || retry=$?
ctl get-test | jq -r '"selected: \([.testcases[] | select(.select) | .name] | join(","))"' >> "$rows/retry.out"
stop_service

# An incomplete summary: a folder that cannot be read, a path too long to reach and
# a link among the archives (never followed inside a folder); then with no run failed.
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
rm "$rows"/fleet/QAV2*  # the aborted run; the link stays
cp "$rows"/norecord/* "$rows/fleet/"
status2=0; as_nobody "$OSTRELCTL" report "$rows/fleet" > "$rows/fleet.txt" || status2=$?
{ echo "retry: exit $retry"; cat "$rows/retry.out"
  echo "summary: exit $status"; jq -r '.headline, ([.bad_archives[].reason] | sort[])' "$rows/fleet.json"
  echo "summary, no run failed: exit $status2"; head -1 "$rows/fleet.txt"
} | like "$(dirname "$0")/golden/retry_and_incomplete_summaries.txt" \
    "retry of an aborted run; summaries with unreadable inputs: incomplete, exit 1 with a failed run and 4 without"
finish
