# The service killed with SIGKILL at random moments (while storing a plan with
# setTest, during ticks of a run, while packing a big result) and started again
# on the same data partition, as after a crash or a power cut. Every time, the
# plan loads exactly as last written, its counters never go back, and a started
# run is still RUNNING or COMPLETING after the restart and bootCompleted.
# OSTREL_FAULT_KILLS sets the number of kills (default 20; the long mode is 200)
# and OSTREL_FAULT_PACK_FILES the number of 4.5 MB logs to pack (default 2).
source "$(dirname "$0")/lib.sh"
KILLS=${OSTREL_FAULT_KILLS:-20}
TEMPLATE=/data/fault-template
EXECUTOR_DIR=/data/vendor/qav/kelbrun

kills=0 mid_pack=0 mid_tick=0 mid_store=0
fail() {  # fail WHAT: one failed check, with the kill it followed
    echo "FAIL (kill $kills, $scenario): $1"
    failures=$((failures + 1))
}
expect() {  # expect WHAT EXPECTED ACTUAL
    [ "$2" == "$3" ] || fail "$1: expected $(printf '%q' "$2"), got $(printf '%q' "$3")"
}
ms_sleep() { sleep "$(printf '%d.%03d' $(($1 / 1000)) $(($1 % 1000)))"; }
now_ms() { echo $(($(date +%s%N) / 1000000)); }

# Three time-based test cases (one tick writes the plan three times) and a
# round-based boot test whose round counts restarts; the executor sleeps.
run_plan() {
    local tc='"select":true,"testcase_current_time":0,"testcase_target_time":0,"testcase_current_round":0,"testcase_target_round":0'
    printf '{"not_set":false,"current_state":1,"run_start":false,"run_finished":false,"testcases":[%s,%s,%s,%s]}' \
        "{\"name\":\"soak a\",\"command\":\"sleep 3600\",\"testcase_value\":2,\"isRound\":false,$tc}" \
        "{\"name\":\"soak b\",\"command\":\"sleep 3600\",\"testcase_value\":3,\"isRound\":false,$tc}" \
        "{\"name\":\"soak c\",\"command\":\"sleep 3600\",\"testcase_value\":4,\"isRound\":false,$tc}" \
        "{\"name\":\"reboots\",\"command\":\"say boot\",\"testcase_value\":100000,\"isRound\":true,\"isBootTest\":true,$tc}"
}
store_plan() {  # store_plan K: a plan that says which store it was
    printf '{"not_set":false,"current_state":1,"run_start":false,"run_finished":false,"testcases":[{"name":"store %d","select":true,"command":"say %d","testcase_value":%d,"isRound":true,"testcase_current_time":0,"testcase_target_time":0,"testcase_current_round":0,"testcase_target_round":0}]}' "$1" "$1" "$1"
}
counters() {  # the progress counters of a plan, one line per test case
    jq -r '.testcases[] | "\(.testcase_current_time) \(.testcase_current_round)"' <<<"$1"
}

# SIGKILL for the service; the run's process groups go too, as at a reboot.
kill_service() {
    local groups
    groups=$(ps -o pgid= --ppid "$SERVICE_PID" 2>/dev/null || true)
    kill -KILL "$SERVICE_PID"
    wait "$SERVICE_PID" 2>/dev/null || true
    for g in $groups; do kill -KILL -- "-$g" 2>/dev/null || true; done
    SERVICE_PID=""
    for _ in $(seq 100); do name_owned || break; sleep 0.05; done
    kills=$((kills + 1))
    [ $((kills % 100)) -ne 0 ] || echo "$kills kills so far: $mid_store inside a write of the plan" >&2
}

# After a kill: the plan file is whole, the restarted service hands out exactly
# that plan in its state, and bootCompleted resumes a started run.
restart_and_check() {
    local file state answer
    file=$(cat "$PLAN")
    jq -e '.testcases | type == "array"' <<<"$file" >/dev/null || fail "the plan file is not whole: $file"
    state=$(jq -r .current_state <<<"$file")
    start_service
    answer=$(field "$(call getTest)" 1)
    expect "the plan loads as last written" "$file" "$answer"
    expect "the state loads as last written" "$state" "$(call getState)"
    expect "bootCompleted answers" "true" "$(call bootCompleted)"
    local start finished after
    start=$(jq -r .run_start <<<"$file")
    finished=$(jq -r .run_finished <<<"$file")
    after=$(call getState)
    if [ "$start" == "true" ] && [ "$finished" == "false" ]; then
        expect "a run under way is RUNNING again" "2" "$after"
        local before_round now_round target
        before_round=$(jq -r '.testcases[3].testcase_current_round' <<<"$file")
        target=$(jq -r '.testcases[3].testcase_target_round' <<<"$file")
        now_round=$(field "$(call getTest)" 1 | jq -r '.testcases[3].testcase_current_round')
        expect "the restart counts as one boot round" \
            "$((before_round < target ? before_round + 1 : target))" "$now_round"
        ps -eo stat=,args= | awk '$1 !~ /^Z/ && /kelbrun/' | grep -q . ||
            fail "no executor after the restart"
    elif [ "$start" == "true" ]; then
        expect "a finished run is COMPLETING again" "3" "$after"
    else
        expect "no run: PREPARING" "1" "$after"
    fi
}

# Plans are stored one after another by a client that stays connected; the
# kill comes at a random moment. A temporary plan file left behind shows that
# the kill landed inside a write of the plan.
STORE_LOOP="$BUILD/tests/e2e/plan_store_loop"
stores=1
kill_while_storing() {
    scenario=store
    local acked=/tmp/acked previous
    previous=$(jq -r '.testcases[0].name' "$PLAN")
    : >"$acked"
    "$STORE_LOOP" "$stores" 1000000 >"$acked" &
    local writer=$! first=$stores
    ms_sleep $((50 + RANDOM % 1500))
    kill_service
    wait "$writer" 2>/dev/null || true
    [ -e "$PLAN.new" ] && mid_store=$((mid_store + 1))
    local last got
    last=$(tail -n 1 "$acked")
    [ -n "$last" ] || last=$((first - 1))
    stores=$((last + 2))
    got=$(jq -r '.testcases[0].name' "$PLAN")
    # The store acknowledged last (the plan before when there was none), or the
    # one under way when the kill came.
    local kept="store $last"
    [ "$last" -ge "$first" ] || kept=$previous
    if [ "$got" != "$kept" ] && [ "$got" != "store $((last + 1))" ]; then
        fail "the plan after the kill is \"$got\"; the last acknowledged store was $last"
    fi
    restart_and_check
}

start_run() {
    expect "setTest of the run plan" "true" "$(call setTest s "$(run_plan)" | head -1)"
    expect "runStart" "true" "$(call runStart)"
    expect "the run is RUNNING" "2" "$(call getState)"
}

kill_during_tick() {
    scenario=tick
    local before t0
    before=$(cat "$PLAN")
    if [ $((RANDOM % 2)) -eq 0 ]; then
        # Any moment of a tick period.
        ms_sleep $((RANDOM % 10500))
    else
        # Inside a tick: just after its first write of the plan.
        t0=$(stat -c %.9Y "$PLAN" 2>/dev/null || true)
        local deadline=$((SECONDS + 15))
        while [ "$(stat -c %.9Y "$PLAN" 2>/dev/null || true)" == "$t0" ] && [ $SECONDS -lt $deadline ]; do
            sleep 0.002
        done
        mid_tick=$((mid_tick + 1))
        before=$(cat "$PLAN")
    fi
    kill_service
    local after
    after=$(cat "$PLAN")
    # Every counter is where it was or further on.
    paste -d' ' <(counters "$before") <(counters "$after") | while read -r t0 r0 t1 r1; do
        [ "$t1" -ge "$t0" ] && [ "$r1" -ge "$r0" ] || echo "back"
    done | grep -q back && fail "a counter went back: $(counters "$before" | paste -sd,) -> $(counters "$after" | paste -sd,)"
    expect "the run flag survives" "true false" "$(jq -r '"\(.run_start) \(.run_finished)"' <<<"$after")"
    restart_and_check
}

# The executor directory gets big log files (hard links of a template) before
# the run ends; getResult packs them and is cut short at a random moment within
# the time a whole packing took.
pack_ms=2000
make_template() {
    mkdir -p "$TEMPLATE"
    awk 'BEGIN { for (i = 0; i < 60000; i++)
        printf "%08d kelbrun: stress round %d of 500 (3 s) cpu=%d load=%.2f ok\n", i, i % 500, i % 8, (i % 97) / 10 }' \
        >"$TEMPLATE/log0.txt"
    for i in $(seq 1 ${OSTREL_FAULT_PACK_FILES:-2}); do cp "$TEMPLATE/log0.txt" "$TEMPLATE/log$i.txt"; done
}
kill_while_packing() {
    scenario=pack
    expect "runAbort" "true" "$(call runAbort)"
    expect "the run is COMPLETING" "3" "$(call getState)"
    cp -l "$TEMPLATE"/*.txt "$EXECUTOR_DIR"/
    call getResult >/dev/null &
    local getter=$!
    ms_sleep $(((RANDOM * 32768 + RANDOM) % pack_ms + 1))
    kill_service
    wait "$getter" 2>/dev/null || true
    [ "$(jq -r .current_state "$PLAN")" == "3" ] && mid_pack=$((mid_pack + 1))
    restart_and_check
    if [ "$(call getState)" == "3" ]; then
        # Packing again from the start, uncut; its time is the next window.
        local t0 result copy=yes
        # A kill after the history copy was moved beside the archive, before the
        # state was written: the result is packed again but has no history to
        # name, and the answer is empty, as for any run without a history copy.
        [ -e /data/vendor/qav/data/db_history ] || copy=no
        t0=$(now_ms)
        result=$(field "$(call getResult)" 1)
        pack_ms=$(($(now_ms) - t0 + 1))
        if [ "$copy" == yes ]; then
            [[ "$result" == /data/vendor/qav/results/QAV*.zip,\ /data/vendor/qav/results/QAV*.db_history ]] ||
                fail "getResult after the restart: $result"
            unzip -tq "${result%%, *}" >/dev/null || fail "the archive made after the restart is not whole"
        else
            expect "without a history copy the result names nothing" "" "$result"
        fi
        expect "the run ends in PREPARING" "1" "$(call getState)"
    fi
}

make_template
start_service
expect "bootCompleted" "true" "$(call bootCompleted)"
while [ "$kills" -lt "$KILLS" ]; do
    kill_while_storing
    [ "$kills" -lt "$KILLS" ] || break
    start_run
    kill_during_tick
    [ "$kills" -lt "$KILLS" ] || break
    kill_during_tick
    [ "$kills" -lt "$KILLS" ] || break
    kill_while_packing
done
echo "$kills kills: $mid_store inside a write of the plan, $mid_tick inside a tick," \
     "$mid_pack while packing (window ${pack_ms} ms)"
check "every kill was followed by a restart that lost nothing" "0" "$failures"
check "the service never died but by the kills" "yes" "$(service_alive && echo yes)"
finish
