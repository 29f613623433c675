# The reply log's life across the bus: the first callback answer after start-up
# carries the constructor's line, lines of value methods travel with the next
# callback answer, every callback answer empties the log.
source "$(dirname "$0")/lib.sh"

start_service
check "getState in IDLE over the bus is the byte 0" "0" "$(call getState)"
check "runStart in IDLE answers true" "true" "$(call runStart)"
answer=$(call getConfig)
check "getConfig in IDLE gives no configuration" "" "$(field "$answer" 1)"
check "the first callback answer carries the constructor's line and every line since" \
    "$(lit 'ostrel: Ostrel\nostrel: getState\nostrel: state=IDLE\nostrel: runStart\nostrel: getConfig\nostrel: config=\n')" \
    "$(value "$answer" 2)"
answer=$(call getResult)
check "the next answer holds only its own lines (the log was emptied)" \
    "$(lit 'ostrel: getResult\nostrel: result=\n')" "$(value "$answer" 2)"

check "bootCompleted in IDLE answers true" "true" "$(call bootCompleted)"
check "the planner is PREPARING after bootCompleted" "1" "$(call getState)"
plan='{"not_set":false,"current_state":1,"run_start":false,"run_finished":false,"testcases":[{"name":"slow","select":true,"command":"sleep 60","testcase_value":3,"isRound":true,"testcase_current_time":0,"testcase_target_time":0,"testcase_current_round":0,"testcase_target_round":0}]}'
answer=$(call setTest s "$plan")
check "setTest in PREPARING stores the plan" "true" "$(field "$answer" 1)"
check "setTest's log holds the value methods' lines before its own" \
    "$(lit 'ostrel: bootCompleted\nostrel: getState\nostrel: state=PREPARING\nostrel: setTest\nostrel: test=%s\n' "$plan")" \
    "$(value "$answer" 2)"

check "runStart in PREPARING answers true" "true" "$(call runStart)"
answer=$(call getTest)
test=$(field "$answer" 1)
check "getTest in RUNNING hands out the plan" "true" "$(jq -c '.run_start' <<<"$test")"
check "runStart then getTest: the lines in order" \
    "$(lit 'ostrel: runStart\nostrel: getTest\nostrel: test=%s\n' "$test")" "$(value "$answer" 2)"

check "runAbort in RUNNING answers true" "true" "$(call runAbort)"
check "the planner is COMPLETING after runAbort" "3" "$(call getState)"
answer=$(call getResult)
result=$(field "$answer" 1)
if [[ $result =~ ^(/data/vendor/qav/results/QAV[^,]*\.zip),\ (/data/vendor/qav/results/QAV.*\.db_history)$ ]]; then
    check "getResult names an archive that exists" "yes" "$([ -f "${BASH_REMATCH[1]}" ] && echo yes)"
else
    check "getResult answers \"<zip>, <history>\"" "/data/vendor/qav/results/QAV<stamp>.zip, ..." "$result"
fi
check "getResult's log: the abort's and the state's lines, then its own" \
    "$(lit 'ostrel: runAbort\nostrel: getState\nostrel: state=COMPLETING\nostrel: getResult\nostrel: result=%s\n' "$result")" \
    "$(value "$answer" 2)"
check "the planner is back in PREPARING after getResult" "1" "$(call getState)"

# A restarted service starts a new log; a stored state outside 1..3 reads as IDLE.
stop_service
jq -c '.current_state = 7' "$PLAN" > /tmp/plan && cp /tmp/plan "$PLAN"
start_service
check "a stored state of 7 reads as 0" "0" "$(call getState)"
answer=$(call clearConfig)
check "after a restart the first answer starts with the constructor's line again" \
    "$(lit 'ostrel: Ostrel\nostrel: getState\nostrel: state=IDLE\nostrel: clearConfig\n')" \
    "$(value "$answer" 2)"
finish
