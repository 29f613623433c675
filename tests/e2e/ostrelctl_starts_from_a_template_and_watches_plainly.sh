# ostrelctl plan-template, stored and started as it is, and watch on a terminal
# (script gives it one, as a LAVA test shell does): --plain prints blocks without
# a cursor code, with the estimate of the end of the time-based test case; without
# it the block is redrawn in place.
source "$(dirname "$0")/lib.sh"
start_service
ctl boot-completed >/dev/null

kinds='[.testcases[] | if .isBootTest then "boots" elif .isRound then "rounds" else "hours" end] | join(" ")'
checked=$(ctl plan-template | ctl check-plan - 2>&1; echo " exit ${PIPESTATUS[1]}")
check "plan-template: one test case of each kind, which check-plan finds fine and set-test stores" \
    "rounds hours boots -: the plan is fine
 exit 0 setTest: ok" \
    "$(ctl plan-template | jq -r "$kinds") $checked $(ctl plan-template | ctl set-test -)"
ctl run-start >/dev/null

# Both watches on a terminal of their own until the run is aborted.
for kind in plain tty; do
    option=$([ $kind == plain ] && echo --plain || true)
    script -qec "$OSTRELCTL --interval 0.2 watch $option" /dev/null > /tmp/$kind.out &
    eval "${kind}_pid=$!"
done
for _ in $(seq 100); do
    grep -q 'state: RUNNING' /tmp/plain.out && grep -q 'state: RUNNING' /tmp/tty.out && break; sleep 0.1
done
started=$(date +%s)
ctl run-abort >/dev/null
for kind in plain tty; do eval "wait \$${kind}_pid" && eval "${kind}_status=0" || eval "${kind}_status=$?"; done
tr -d '\r' < /tmp/plain.out > /tmp/plain.txt

# The end of one hour counted from the first block, seen within a minute of the abort.
ends=" $(for t in -60 0 60; do date -d "@$((started + 3600 + t))" +%H:%M; done | tr '\n' ' ')"
estimate=$(sed -nE 's/^      about 1 h left, ends about ([0-9]{2}:[0-9]{2})$/\1/p' /tmp/plain.txt | head -1)
check "watch --plain on a terminal: exit 0, no ESC byte, a block per change, the end of the hours estimated in RUNNING" \
    "0 0 RUNNING COMPLETING 1 yes yes" \
    "$plain_status $(grep -c $'\e' /tmp/plain.txt) $(sed -n 's/^state: //p' /tmp/plain.txt | tr '\n' ' ')\
$(grep -c 'left, ends about' /tmp/plain.txt) \
$(yes_if grep -Eq '^at [0-9:]{8}, watched [0-9]+ s, run time [0-9]+ s$' <(head -1 /tmp/plain.txt)) \
$(yes_if grep -q " $estimate " <<<"$ends")"
check "watch without --plain on a terminal: exit 0, the first block of 6 lines redrawn in place" \
    "0 1" "$tty_status $(grep -c $'\e\\[6A\e\\[J' /tmp/tty.out)"
check "watch takes no argument, nor another command's option" \
    "2 ostrelctl: usage: ostrelctl watch [--plain]|2 ostrelctl: watch takes no --force (usage: ostrelctl watch [--plain])" \
    "$(status_of ctl watch now) $(ctl watch now 2>&1)|$(status_of ctl watch --force) $(ctl watch --force 2>&1)"
finish
