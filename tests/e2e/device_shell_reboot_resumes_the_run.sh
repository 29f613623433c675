# scripts/device-shell, the device to try Ostrel on by hand: its shell on a
# terminal, then this script run in it as a command. A stored plan with a boot
# test is started, the device rebooted and crash lines written with the shell's
# own commands; the run resumes with its boot counted and the lines are collected.
source "$(dirname "$0")/lib.sh"
shell=$OSTREL_SOURCE_DIR/scripts/device-shell
export OSTREL_BUILD=$OSTREL_BUILD_DIR

if [ -z "${OSTREL_SANDBOX:-}" ]; then
    # On the host: the interactive shell, typed into on a terminal.
    typed=$(printf 'ostrelctl state\ncrash typed line\ncat /data/vendor/brvlog/fyr_exp/db_history\nexit 3\n' |
        script -qec "$shell" /dev/null | sed 's/\x1b\[[0-9;?]*[a-zA-Z]//g; s/\r//g') && status=0 || status=$?
    check "the shell on a terminal: ostrelctl reaches the service, crash writes, its exit status is the shell's" \
        "PREPARING typed line 3" "$(grep -x PREPARING <<<"$typed") $(grep -x 'typed line' <<<"$typed") $status"
    status=0
    "$shell" -- bash "$0" || status=$?
    check "the script run in the device shell passes" 0 "$status"
    finish
    exit 0
fi

# In the device shell: ostrelctl, reboot and crash are on PATH.
executor_pid() { pgrep -nf '^bash /vendor/bin/kelbrun'; }
wait_for() {  # wait_for COMMAND...: up to 10 s
    for _ in $(seq 100); do "$@" >/dev/null 2>&1 && return 0; sleep 0.1; done
    echo "FAIL: waited in vain for: $*"
}
copy=/data/vendor/qav/data/db_history

plan "$(testcase greeting "say hello" 1)" "$(testcase boots "sleep 600" 2 boot)" > /tmp/plan.json
ostrelctl set-test /tmp/plan.json >/dev/null
ostrelctl run-start >/dev/null
wait_for executor_pid
first=$(executor_pid)
crash --short "before the reboot" >/dev/null
wait_for grep -qx "before the reboot" "$copy"
# Read as a script would: the service it starts holds none of reboot's output open.
rebooted=$(reboot)
wait_for executor_pid
check "reboot: the run resumes (RUNNING), its boot counted, the executor started again with what is left" \
    "bootCompleted: ok RUNNING 1 kelbrun: arguments: say hello 1 sleep 600 1" \
    "$(tail -1 <<<"$rebooted") $(ostrelctl state) \
$(ostrelctl get-test | jq '.testcases[] | select(.isBootTest) | .testcase_current_round') \
$(grep 'arguments:' /data/vendor/qav/kelbrun/kelbrun_log.txt | tail -1 | sed -E 's/pid [0-9]+, group [0-9]+, //')"
check "reboot ended the first executor's process group" no "$(yes_if kill -0 "$first")"

crash "after the reboot" >/dev/null
wait_for grep -qx "after the reboot" "$copy"
ostrelctl run-abort >/dev/null
archive=$(ostrelctl get-result | sed -n 's/^archive: //p')
check "both crash lines are collected: the history copy and the report of the result" \
    "before the reboot|after the reboot before the reboot|after the reboot" \
    "$(paste -sd'|' "${archive%.zip}.db_history") \
$("$OSTRELCTL" report --format json "$archive" | jq -r '.crash_history.lines | join("|")')"
finish
