# SIGKILL at random moments (storing plans, during a run's ticks, packing a big
# result), then a restart on the same data, as after a power cut: the plan loads
# as last written, no counter goes back, a started run goes on. OSTREL_FAULT_KILLS
# kills (default 20, long mode 200), OSTREL_FAULT_PACK_FILES 4.5 MB logs (2).
# Kills during a run's end show that its group is signalled only once the finished
# flag is on disk, and that a restart then resumes in COMPLETING.
source "$(dirname "$0")/lib.sh"
KILLS=${OSTREL_FAULT_KILLS:-20}
JOURNAL=/data/vendor/qav/run/record.journal
kills=0 mid_pack=0 mid_tick=0 mid_store=0 mid_end=0 stores=1 pack_ms=2000 scenario=start
expect() { check "kill $kills, $scenario: $1" "$2" "$3"; }
sleep_ms() { sleep "$(($1 / 1000)).$(printf %03d $(($1 % 1000)))"; }
kill_service() { stop_service KILL; kills=$((kills + 1)); }

# After a kill the restarted service hands out exactly the plan file (so a torn
# one fails), in its state, and bootCompleted resumes a started run (one boot round).
restart_and_check() {
    local file handed; file=$(cat "$PLAN")
    # Killed before a first plan was stored: the built-in placeholder, never handed out.
    handed=$file; [ "$(jq .not_set <<<"$file")" != true ] || handed=""
    # Every line of the run record whole (RunRecordKill_test holds it to the plan).
    [ ! -e "$JOURNAL" ] || expect "the run record is whole" yes "$(yes_if jq -e .event "$JOURNAL")"
    start_service
    expect "the plan loads as last written" "$handed" "$(field "$(call getTest)" 1)"
    expect "the plan file is whole, its state loads as written; bootCompleted" \
        "$(jq .current_state <<<"$file") true" "$(call getState) $(call bootCompleted)"
    case $(jq -r '"\(.run_start) \(.run_finished)"' <<<"$file") in
    "true false")
        expect "a run under way is RUNNING again" 2 "$(call getState)"
        expect "the restart counts as one boot round, a second bootCompleted as the executor runs none" \
            "$(jq '.testcases[3] | [.testcase_current_round + 1, .testcase_target_round] | min' <<<"$file")" \
            "$(call bootCompleted >/dev/null; field "$(call getTest)" 1 | jq '.testcases[3].testcase_current_round')"
        expect "the executor runs again" yes "$(yes_if pgrep -f -r S,R,D "^bash /vendor/bin/kelbrun ")" ;;
    "true true") expect "a finished run is COMPLETING again" 3 "$(call getState)" ;;
    *) expect "no run: PREPARING" 1 "$(call getState)" ;;
    esac
}

# A connected client stores plans "store K" until the kill; the plan on disk is the last
# acknowledged or the one under way. A temporary plan file left counts a kill inside a write.
kill_while_storing() {
    scenario=store
    local kept first=$stores last got
    kept=$(jq -r '.testcases[0].name' "$PLAN")
    "$BUILD/tests/e2e/plan_store_loop" "$first" 1000000 >/tmp/acked &
    sleep_ms $((50 + RANDOM % 1500))
    kill_service
    wait $! 2>/dev/null || true
    [ ! -e "$PLAN.new" ] || mid_store=$((mid_store + 1))
    last=$(tail -n 1 /tmp/acked)
    if [ -n "$last" ]; then kept="store $last"; else last=$((first - 1)); fi
    stores=$((last + 2))
    got=$(jq -r '.testcases[0].name' "$PLAN")
    [ "$got" == "store $((last + 1))" ] || expect "the plan is the last acknowledged" "$kept" "$got"
    restart_and_check
}

# Three time-based test cases (three plan writes a tick) and a boot test; the kill
# comes at any moment of a tick period, or just after a tick's first write.
start_run() {
    scenario=run
    local soak=("$(testcase "soak a" "sleep 3600" 2 time)" "$(testcase "soak b" "sleep 3600" 3 time)"
                "$(testcase "soak c" "sleep 3600" 4 time)" "$(testcase reboots "say boot" 100000 boot)")
    expect "setTest, runStart" "true true 2" \
        "$(call setTest s "$(plan "${soak[@]}")" | head -1) $(call runStart) $(call getState)"
}
kill_during_tick() {
    scenario=tick
    local before t0 deadline=$((SECONDS + 15))
    if [ $((RANDOM % 2)) -eq 0 ]; then
        sleep_ms $((RANDOM % 10500))
    else
        t0=$(stat -c %.9Y "$PLAN")
        while [ "$(stat -c %.9Y "$PLAN")" == "$t0" ] && [ $SECONDS -lt $deadline ]; do sleep 0.002; done
        mid_tick=$((mid_tick + 1))
    fi
    before=$(cat "$PLAN")
    kill_service
    expect "no counter went back" true "$(jq --argjson was "$before" '[$was.testcases, .testcases] | transpose
        | all(.[1].testcase_current_time >= .[0].testcase_current_time
              and .[1].testcase_current_round >= .[0].testcase_current_round)' "$PLAN")"
    expect "the run flags survive" "true false" "$(jq -r '"\(.run_start) \(.run_finished)"' "$PLAN")"
    restart_and_check
}

# runAbort, and a kill at a random moment of it or as soon as the executor is gone
# (just after the signal). Before the finished flag is on disk no signal may have
# been sent: the run then goes on after the restart, else it is COMPLETING.
kill_during_end() {
    [ "$(call getState)" != 3 ] || call getResult >/dev/null
    [ "$(call getState)" == 2 ] || start_run
    scenario=end
    local exe groups flags deadline=$((SECONDS + 5))
    exe=$(pgrep -o -f "^bash /vendor/bin/kelbrun ") groups=$(ps -o pgid= --ppid "$SERVICE_PID" || true)
    call runAbort >/dev/null &
    if [ $((RANDOM % 4)) -eq 0 ]; then sleep_ms $((RANDOM % 20)); else
        while kill -0 "$exe" 2>/dev/null && [ $SECONDS -lt $deadline ]; do :; done; fi
    kill -KILL "$SERVICE_PID"; sleep 0.1
    flags=$(jq -r '"\(.run_start) \(.run_finished) \(.current_state)"' "$PLAN")
    [ "$flags" != "true true 2" ] || mid_end=$((mid_end + 1))
    [ "${flags% *}" != "true false" ] || expect "no signal before the finished flag is on disk" \
        yes "$(yes_if pgrep -f -r S,R,D "^bash /vendor/bin/kelbrun ")"
    for g in $groups; do kill -KILL -- "-$g" 2>/dev/null || true; done
    kill_service
    restart_and_check
}

# Big logs in the executor's folder; getResult packing them is cut short within
# the time a whole packing took.
mkdir -p /data/template
awk 'BEGIN { for (i = 0; i < 60000; i++)
    printf "%08d kelbrun: stress round %d of 500 (3 s) cpu=%d load=%.2f ok\n", i, i % 500, i % 8, (i % 97) / 10 }' >/data/template/log0.txt
for i in $(seq 1 "${OSTREL_FAULT_PACK_FILES:-2}"); do cp /data/template/log0.txt "/data/template/log$i.txt"; done
kill_while_packing() {
    scenario=pack
    expect "runAbort" "true 3" "$(call runAbort) $(call getState)"
    cp -l /data/template/*.txt /data/vendor/qav/kelbrun/
    call getResult >/dev/null &
    sleep_ms $(((RANDOM * 32768 + RANDOM) % pack_ms + 1))
    kill_service
    wait $! 2>/dev/null || true
    [ "$(jq .current_state "$PLAN")" != 3 ] || mid_pack=$((mid_pack + 1))
    restart_and_check
    [ "$(call getState)" == 3 ] || return 0
    # Packed again, uncut, timing the next window. A kill after the history copy
    # was moved, before the state was written, leaves no history: an empty answer.
    local t0 result want=""
    [ ! -e /data/vendor/qav/data/db_history ] || want="yes 0"
    t0=$(date +%s%3N)
    result=$(field "$(call getResult)" 1)
    pack_ms=$(($(date +%s%3N) - t0 + 1))
    expect "getResult after the restart names both files, the archive whole (nothing without a history copy)" "$want" \
        "$([ -z "$result" ] || echo "$(yes_if grep -Eq "$RESULT_RE" <<<"$result") $(status_of unzip -tq "${result%%, *}")")"
    expect "the run ends in PREPARING" 1 "$(call getState)"
}

start_service
expect "bootCompleted" true "$(call bootCompleted)"
while :; do
    for step in kill_while_storing start_run kill_during_tick kill_during_end kill_during_end kill_while_packing; do
        [ "$kills" -lt "$KILLS" ] || break 2
        $step
    done
done
echo "$kills kills: $mid_store inside a write of the plan, $mid_tick inside a tick, $mid_end between a run end's two writes, $mid_pack while packing (window ${pack_ms} ms)"
finish
