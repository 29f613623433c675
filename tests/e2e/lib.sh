# Helpers of the end-to-end tests: the real service process on the sandbox's
# private bus, called with busctl (and ostrelctl). Sourced by each test script,
# which runs inside scripts/devsandbox with the bus.
set -euo pipefail

BUILD=${OSTREL_BUILD_DIR:?}
SOURCE=${OSTREL_SOURCE_DIR:?}
SERVICE_BIN="$BUILD/2.0/default/vendor.brevane.hardware.ostrel@2.0-service"
OSTRELCTL="$BUILD/tools/ostrelctl"
NAME=vendor.brevane.hardware.ostrel.V2_0.IOstrel.default
OBJECT=/vendor/brevane/hardware/ostrel/V2_0/IOstrel/default
IFACE=vendor.brevane.hardware.ostrel.V2_0.IOstrel
PLAN=/data/vendor/qav/data/ostreldata.txt
SERVICE_LOG=/tmp/service.log
export SILLET_BIN="$SOURCE/fakes/sillet/sillet"

failures=0
check() {  # check DESCRIPTION EXPECTED ACTUAL
    if [ "$2" == "$3" ]; then
        echo "ok: $1"
    else
        echo "FAIL: $1"
        echo "  expected: $(printf '%q' "$2")"
        echo "  actual:   $(printf '%q' "$3")"
        failures=$((failures + 1))
    fi
}
finish() {
    stop_service
    if [ "$failures" -ne 0 ]; then echo "$failures check(s) failed"; exit 1; fi
    echo "all checks passed"
}

name_owned() {
    [ "$(busctl call org.freedesktop.DBus /org/freedesktop/DBus org.freedesktop.DBus \
         NameHasOwner s "$NAME")" == "b true" ]
}

SERVICE_PID=""
start_service() {  # the service, as root, with its standard error in SERVICE_LOG
    "$SERVICE_BIN" 2>>"$SERVICE_LOG" &
    SERVICE_PID=$!
    for _ in $(seq 100); do
        name_owned && return 0
        kill -0 "$SERVICE_PID" 2>/dev/null || break
        sleep 0.05
    done
    echo "FAIL: the service did not take its bus name"; cat "$SERVICE_LOG"; exit 1
}
stop_service() {  # as a reboot does: the service and its run's processes end
    if [ -n "$SERVICE_PID" ]; then
        # The run's supervisor is a child of the service in a group of its own.
        local groups
        groups=$(ps -o pgid= --ppid "$SERVICE_PID" 2>/dev/null || true)
        kill "$SERVICE_PID" 2>/dev/null || true
        wait "$SERVICE_PID" 2>/dev/null || true
        for g in $groups; do kill -KILL -- "-$g" 2>/dev/null || true; done
        SERVICE_PID=""
    fi
    for _ in $(seq 100); do name_owned || return 0; sleep 0.05; done
}
service_alive() {
    [ -n "$SERVICE_PID" ] && kill -0 "$SERVICE_PID" 2>/dev/null && name_owned
}

# call METHOD [SIGNATURE ARG...]: the answer's values, one a line (strings as
# JSON string literals, so that every byte is visible); a D-Bus error is
# printed as "error: MESSAGE" and the function still succeeds.
call() {
    local method=$1; shift
    local out
    if out=$(busctl --json=short call "$NAME" "$OBJECT" "$IFACE" "$method" "$@" 2>&1); then
        jq -c '.data[]' <<<"$out"
    else
        echo "error: $out"
    fi
}
# The n-th value (from 1) of an answer, decoded: strings as their text.
field() { sed -n "${2}p" <<<"$1" | jq -j '.'; }
# The n-th value of an answer as a JSON literal, and printf's output as one:
# compared as literals, every byte counts, trailing newlines included.
value() { sed -n "${2}p" <<<"$1"; }
lit() { printf "$@" | jq -Rsc '.'; }

wait_state() {  # wait_state STATE_NUMBER SECONDS
    local deadline=$((SECONDS + $2))
    while [ $SECONDS -lt $deadline ]; do
        [ "$(call getState)" == "$1" ] && return 0
        sleep 0.5
    done
    return 1
}
