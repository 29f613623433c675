# Each of the twelve methods over the bus in each of the four states: the
# planner's answer and the state it leaves behind.
source "$(dirname "$0")/lib.sh"
ARRAY=(sayu t.bin 65536 $(head -c 65536 /dev/zero | od -An -v -tu1) 4)
plan() {  # plan NAME COMMAND: one selected round-based test case
    printf '{"not_set":false,"current_state":1,"run_start":false,"run_finished":false,"testcases":[{"name":"%s","select":true,"command":"%s","testcase_value":3,"isRound":true,"testcase_current_time":0,"testcase_target_time":0,"testcase_current_round":0,"testcase_target_round":0}]}' "$1" "$2"
}
answers() {  # answers METHOD...: the first value of each call, one line
    for m in "$@"; do
        case $m in
            installTesters) call installTesters "${ARRAY[@]}" ;;
            setTest) call setTest s "$(plan other 'say x')" ;;
            setConfig) call setConfig s '{}' ;;
            *) call "$m" ;;
        esac | head -1
    done | paste -sd' '
}

start_service
check "IDLE: texts empty, everything else true and ignored" \
    '"" true true 0 true true true "" true ""' \
    "$(answers getConfig setConfig clearConfig getState runAbort runFinished installTesters \
               getTest setTest getResult)"
check "IDLE: runStart answers true" "true" "$(call runStart)"
check "IDLE: still IDLE" "0" "$(call getState)"
check "IDLE: bootCompleted moves to PREPARING" "true 1" "$(call bootCompleted) $(call getState)"
check "PREPARING: the setTest sent in IDLE was not stored (no plan to hand out)" '""' \
    "$(call getTest | head -1)"

check "PREPARING: setTest stores a plan" "true" "$(call setTest s "$(plan slow 'sleep 60')" | head -1)"
config=$(field "$(call getConfig)" 1)
check "PREPARING: getConfig hands out the configuration list" "true" \
    "$(jq -c 'has("id") and has("config")' <<<"$config")"
check "PREPARING: the selection as listed is applied" "true" \
    "$(call setConfig s "$config" | head -1)"
check "PREPARING: the other methods answer true and stay in PREPARING" \
    "true 1 true true true \"\" true 1" \
    "$(answers clearConfig getState runAbort runFinished installTesters getResult setTest getState)"
check "PREPARING: the last setTest is the plan in force" "$(plan other 'say x')" \
    "$(field "$(call getTest)" 1)"
check "PREPARING: bootCompleted has no effect" "true 1" "$(call bootCompleted) $(call getState)"

call setTest s "$(plan slow 'sleep 60')" >/dev/null
check "PREPARING: runStart moves to RUNNING" "true 2" "$(call runStart) $(call getState)"
running=$(field "$(call getTest)" 1)
check "RUNNING: the plan carries the live run's flags" "true false 3" \
    "$(jq -r '"\(.run_start) \(.run_finished) \(.testcases[0].testcase_target_round)"' <<<"$running")"
check "RUNNING: requests other than the run's are answered true and ignored" \
    "\"\" true true 2 true" \
    "$(answers getConfig setConfig clearConfig getState bootCompleted)"
check "RUNNING: setTest and installTesters answer true" "true true" \
    "$(answers setTest installTesters)"
check "RUNNING: getResult gives no result" '""' "$(call getResult | head -1)"
check "RUNNING: the plan is unchanged" "$running" "$(field "$(call getTest)" 1)"
check "RUNNING: runFinished ends the run (COMPLETING)" "true 3" "$(call runFinished) $(call getState)"

check "COMPLETING: everything but getTest and getResult is answered true and ignored" \
    "\"\" true true 3 true true true true true true" \
    "$(answers getConfig setConfig clearConfig getState runStart runAbort runFinished \
               bootCompleted installTesters setTest)"
check "COMPLETING: the state is unchanged" "3" "$(call getState)"
check "COMPLETING: getTest hands out the finished plan" "true true" \
    "$(field "$(call getTest)" 1 | jq -r '"\(.run_start) \(.run_finished)"')"
result=$(field "$(call getResult)" 1)
check "COMPLETING: getResult names the archive and the history copy" "yes" \
    "$([[ $result =~ ^/data/vendor/qav/results/QAV[0-9_]+\.zip,\ /data/vendor/qav/results/QAV[0-9_]+\.db_history$ ]] && echo yes || echo "$result")"
check "COMPLETING: getResult returns to PREPARING" "1" "$(call getState)"
check "the service process never died" "yes" "$(service_alive && echo yes)"
finish
