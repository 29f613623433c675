# ostrelctl plan-template: a plan to start from, with one test case of each kind,
# which check-plan finds fine and set-test stores as it is.
source "$(dirname "$0")/lib.sh"
start_service
ctl boot-completed >/dev/null

kinds='[.testcases[] | if .isBootTest then "boots" elif .isRound then "rounds" else "hours" end] | join(" ")'
checked=$(ctl plan-template | ctl check-plan - 2>&1; echo " exit ${PIPESTATUS[1]}")
check "plan-template: one test case of each kind, which check-plan finds fine and set-test stores" \
    "rounds hours boots -: the plan is fine
 exit 0 setTest: ok" \
    "$(ctl plan-template | jq -r "$kinds") $checked $(ctl plan-template | ctl set-test -)"
finish
