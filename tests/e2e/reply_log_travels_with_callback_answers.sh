# The reply log over the bus: the first callback answer carries the constructor's
# line, value methods' lines travel with the next callback answer, which empties
# the log; a restarted service starts a new one.
source "$(dirname "$0")/lib.sh"
# log METHOD [SIGNATURE ARG...]: the reply log that comes with a callback answer.
log() { value "$(call "$@")" 2; }

start_service
check "getState and runStart in IDLE: the byte 0 and true" "0 true" "$(call getState) $(call runStart)"
check "the first callback answer carries the constructor's line and every line since" \
    "$(lit 'ostrel: Ostrel\nostrel: getState\nostrel: state=IDLE\nostrel: runStart\nostrel: getConfig\nostrel: config=\n')" \
    "$(log getConfig)"
check "the next answer holds only its own lines (the log was emptied)" \
    "$(lit 'ostrel: getResult\nostrel: result=\n')" "$(log getResult)"

check "bootCompleted in IDLE: PREPARING" "true 1" "$(call bootCompleted) $(call getState)"
run=$(plan "$(testcase slow "sleep 60" 3)")
check "setTest's log holds the value methods' lines before its own" \
    "$(lit 'ostrel: bootCompleted\nostrel: getState\nostrel: state=PREPARING\nostrel: setTest\nostrel: test=%s\n' "$run")" \
    "$(log setTest s "$run")"
check "runStart in PREPARING answers true" "true" "$(call runStart)"
answer=$(call getTest)
check "runStart then getTest: the lines in order" \
    "$(lit 'ostrel: runStart\nostrel: getTest\nostrel: test=%s\n' "$(field "$answer" 1)")" "$(value "$answer" 2)"

check "runAbort in RUNNING: COMPLETING" "true 3" "$(call runAbort) $(call getState)"
answer=$(call getResult)
check "getResult's log: the abort's and the state's lines, then its own" \
    "$(lit 'ostrel: runAbort\nostrel: getState\nostrel: state=COMPLETING\nostrel: getResult\nostrel: result=%s\n' "$(field "$answer" 1)")" \
    "$(value "$answer" 2)"

stop_service
jq -c '.current_state = 7' "$PLAN" > /tmp/plan && cp /tmp/plan "$PLAN"
start_service
check "a stored state of 7 reads as 0" "0" "$(call getState)"
check "after a restart the first answer starts with the constructor's line again" \
    "$(lit 'ostrel: Ostrel\nostrel: getState\nostrel: state=IDLE\nostrel: clearConfig\n')" "$(log clearConfig)"
finish
