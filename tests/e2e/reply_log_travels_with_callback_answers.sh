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

run=$(plan "$(testcase slow "sleep 60" 3)")
check "bootCompleted in IDLE: PREPARING; setTest's log holds the value methods' lines before its own" \
    "true 1 $(lit 'ostrel: bootCompleted\nostrel: getState\nostrel: state=PREPARING\nostrel: setTest\nostrel: test=%s\n' "$run")" \
    "$(call bootCompleted) $(call getState) $(log setTest s "$run")"
started=$(call runStart); answer=$(call getTest)
check "runStart in PREPARING answers true; then getTest: the lines in order" \
    "true $(lit 'ostrel: runStart\nostrel: getTest\nostrel: test=%s\n' "$(field "$answer" 1)")" "$started $(value "$answer" 2)"

aborted="$(call runAbort) $(call getState)"; answer=$(call getResult)
check "runAbort in RUNNING: COMPLETING; getResult's log: the abort's and the state's lines, then its own" \
    "true 3 $(lit 'ostrel: runAbort\nostrel: getState\nostrel: state=COMPLETING\nostrel: getResult\nostrel: result=%s\n' "$(field "$answer" 1)")" \
    "$aborted $(value "$answer" 2)"

stop_service
jq -c '.current_state = 7' "$PLAN" > /tmp/plan && cp /tmp/plan "$PLAN"
start_service
check "after a restart a stored state of 7 reads as 0; the first answer starts with the constructor's line again" \
    "0 $(lit 'ostrel: Ostrel\nostrel: getState\nostrel: state=IDLE\nostrel: clearConfig\n')" "$(call getState) $(log clearConfig)"
finish
