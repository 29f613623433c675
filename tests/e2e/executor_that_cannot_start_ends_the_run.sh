# An executor that cannot be started (here a file that is not executable) ends
# the run by itself at the next tick: the executor's child leaves with _exit
# status 1, the supervisor reports it and kills its group, the tick thread reaps
# the supervisor and ends the run, and the result names both files. Run with
# OSTREL_KELBRUN pointing at a file without execute permission.
source "$(dirname "$0")/lib.sh"

[ ! -x /vendor/bin/kelbrun ] || { echo "FAIL: /vendor/bin/kelbrun is executable here"; exit 1; }
start_service
check "bootCompleted" "true" "$(call bootCompleted)"
plan='{"not_set":false,"current_state":1,"run_start":false,"run_finished":false,"testcases":[{"name":"soak","select":true,"command":"sleep 3600","testcase_value":1,"isRound":false,"testcase_current_time":0,"testcase_target_time":0,"testcase_current_round":0,"testcase_target_round":0}]}'
check "setTest" "true" "$(call setTest s "$plan" | head -1)"
check "runStart" "true" "$(call runStart)"
wait_state 3 15 || true
check "the run ends by itself at the next tick" "3" "$(call getState)"
log=$(cat "$SERVICE_LOG")
supervisor=$(grep -o 'ostrel: process [0-9]* back, status 0x0100' <<<"$log" | head -1 || true)
check "the supervisor reports the executor's exit status 1" "yes" "$([ -n "$supervisor" ] && echo yes)"
check "the service reaps the supervisor, killed with its group" "yes" \
    "$(grep -qE 'ostrel: send finished event, process : [0-9]+, status : 0x0009' <<<"$log" && echo yes)"
result=$(field "$(call getResult)" 1)
check "getResult names the archive and the history" "yes" \
    "$([[ "$result" == /data/vendor/qav/results/QAV*.zip,\ /data/vendor/qav/results/QAV*.db_history ]] && echo yes)"
check "the run is over" "1" "$(call getState)"
finish
