# An executor that cannot be started (OSTREL_KELBRUN is a file without execute
# permission) ends the run at the next tick: its child leaves with status 1, the
# supervisor reports it and kills its group, the tick thread reaps the supervisor.
source "$(dirname "$0")/lib.sh"

start_service
check "bootCompleted, setTest, runStart" "true true true" \
    "$(call bootCompleted) $(call setTest s "$(plan "$(testcase soak "sleep 3600" 1 time)")" | head -1) $(call runStart)"
for _ in $(seq 30); do [ "$(call getState)" != 3 ] || break; sleep 0.5; done
check "the run ends by itself at the next tick" "3" "$(call getState)"
check "the supervisor reports the executor's exit status 1" "yes" \
    "$(yes_if grep -qE 'ostrel: process [0-9]+ back, status 0x0100' "$SERVICE_LOG")"
check "the service reaps the supervisor, killed with its group" "yes" \
    "$(yes_if grep -qE 'ostrel: send finished event, process : [0-9]+, status : 0x0009' "$SERVICE_LOG")"
check "getResult names the archive and the history; the run is over" "yes 1" \
    "$(yes_if grep -Eq "$RESULT_RE" <<<"$(field "$(call getResult)" 1)") $(call getState)"
finish
