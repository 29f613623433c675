# Helpers of the end-to-end and report tests, which run inside scripts/devsandbox:
# the real service process on the sandbox's private bus, busctl and ostrelctl.
set -euo pipefail

BUILD=${OSTREL_BUILD_DIR:?}
SERVICE_BIN="$BUILD/2.0/default/vendor.brevane.hardware.ostrel@2.0-service"
OSTRELCTL="$BUILD/tools/ostrelctl"
NAME=vendor.brevane.hardware.ostrel.V2_0.IOstrel.default
OBJECT=/vendor/brevane/hardware/ostrel/V2_0/IOstrel/default
IFACE=vendor.brevane.hardware.ostrel.V2_0.IOstrel
PLAN=/data/vendor/qav/data/ostreldata.txt
RESULT_RE='^/data/vendor/qav/results/QAV[0-9_]+\.zip, /data/vendor/qav/results/QAV[0-9_]+\.db_history$'
SERVICE_LOG=/tmp/service.log
export SILLET_BIN="${OSTREL_SOURCE_DIR:?}/fakes/sillet/sillet"
BUS=(org.freedesktop.DBus /org/freedesktop/DBus org.freedesktop.DBus)  # the bus itself, for busctl call

failures=0
check() {  # check DESCRIPTION EXPECTED ACTUAL
    if [ "$2" == "$3" ]; then echo "ok: $1"; return; fi
    printf 'FAIL: %s\n  expected: %q\n  actual:   %q\n' "$1" "$2" "$3"
    failures=$((failures + 1))
}
finish() {
    stop_service
    if [ "$failures" -eq 0 ]; then echo "all checks passed"; else echo "$failures check(s) failed"; exit 1; fi
}
ctl() { "$OSTRELCTL" "$@"; }
status_of() { local s=0; "$@" >/dev/null 2>&1 || s=$?; echo "$s"; }
yes_if() { if "$@" >/dev/null 2>&1; then echo yes; else echo no; fi; }
as_nobody() { setpriv --reuid 65534 --regid 65534 --clear-groups "$@"; }

# testcase NAME COMMAND VALUE [round|time|boot [SELECT]]: one test case of a plan;
# plan TESTCASE...: a plan of them, not started.
testcase() {
    local kind=${4:-round}
    printf '{"name":"%s","select":%s,"command":"%s","testcase_value":%s,"isRound":%s,%s%s}' \
        "$1" "${5:-true}" "$2" "$3" "$([ "$kind" == time ] && echo false || echo true)" \
        "$([ "$kind" == boot ] && echo '"isBootTest":true,')" \
        '"testcase_current_time":0,"testcase_target_time":0,"testcase_current_round":0,"testcase_target_round":0'
}
plan() { local IFS=,; printf '{"not_set":false,"current_state":1,"run_start":false,"run_finished":false,"testcases":[%s]}' "$*"; }

name_owned() { [ "$(busctl call "${BUS[@]}" NameHasOwner s "$NAME" 2>/dev/null)" == "b true" ]; }

SERVICE_PID=""
start_service() {  # the service, as root, its output in SERVICE_LOG (so that no reader of ours waits on it)
    "$SERVICE_BIN" >>"$SERVICE_LOG" 2>&1 &
    SERVICE_PID=$!
    for _ in $(seq 100); do name_owned && return 0; kill -0 "$SERVICE_PID" 2>/dev/null || break; sleep 0.05; done
    echo "FAIL: the service did not take its bus name"; cat "$SERVICE_LOG"; exit 1
}
stop_service() {  # stop_service [SIGNAL]: as a reboot does, the service and its run's processes end
    [ -n "$SERVICE_PID" ] || return 0
    # The run's supervisor is a child of the service in a group of its own.
    local groups; groups=$(ps -o pgid= --ppid "$SERVICE_PID" || true)
    kill "-${1:-TERM}" "$SERVICE_PID" 2>/dev/null || true; wait "$SERVICE_PID" 2>/dev/null || true
    for g in $groups; do kill -KILL -- "-$g" 2>/dev/null || true; done
    SERVICE_PID=""
    for _ in $(seq 100); do name_owned || return 0; sleep 0.05; done
}

# call METHOD [SIGNATURE ARG...]: the answer's values, one a line, strings as JSON
# literals (every byte visible); a D-Bus error as "error: MESSAGE".
call() {
    local out
    if out=$(busctl --json=short call "$NAME" "$OBJECT" "$IFACE" "$@" 2>&1); then jq -c '.data[]' <<<"$out"; else echo "error: $out"; fi
}
# field ANSWER N: the N-th value decoded; value ANSWER N: as a JSON literal, to
# compare with lit PRINTF-ARGS..., every byte and trailing newline counting.
field() { sed -n "${2}p" <<<"$1" | jq -j '.'; }
value() { sed -n "${2}p" <<<"$1"; }
lit() { printf "$@" | jq -Rsc '.'; }
