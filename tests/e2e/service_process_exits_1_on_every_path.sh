# The service process writes its platform-log lines and ends with status 1 on
# every path: registration refused (name taken, or not root) and a lost bus.
source "$(dirname "$0")/lib.sh"
TAG=vendor.brevane.hardware.ostrel@2.0-service
# liblog on the host: "<tag> <priority> <date> <time> <pid> <tid> <message>".
log_lines() { grep -E "^$TAG [A-Z] " "$1" | sed -E 's/^([^ ]+ [A-Z]) [0-9-]+ [0-9:.]+ +[0-9]+ +[0-9]+ /\1 /'; }
REFUSED="1 $TAG W Cannot register Ostrel HAL service"
exit_and_log() { local s=0; "${@:2}" 2>"$1" || s=$?; echo "$s $(log_lines "$1")"; }

# A plan file that cannot be read is replaced; the service still registers.
printf 'not a plan' > "$PLAN"
start_service
check "ready line at info priority, and nothing else from the process" \
    "$TAG I Ostrel HAL service is ready." "$(log_lines "$SERVICE_LOG")"
check "the unreadable plan reads as IDLE; one thread serves the bus while no run is on" "0 1" \
    "$(call getState) $(ls /proc/"$SERVICE_PID"/task | wc -l)"

# A second service finds the name taken: one warning, no join, status 1.
check "a second service exits with status 1 and only the registration warning" "$REFUSED" \
    "$(exit_and_log /tmp/second.log "$SERVICE_BIN")"
check "the first service still serves" "1" "$(call bootCompleted >/dev/null; call getState)"

# Only root may own the name: a service run as another user is refused.
stop_service
check "a service not run as root exits with status 1 and the registration warning" "$REFUSED" \
    "$(exit_and_log /tmp/nobody.log as_nobody "$SERVICE_BIN")"

# The bus goes away under a running service: the join returns, status 1.
: > "$SERVICE_LOG"
start_service
kill "$(busctl call "${BUS[@]}" GetConnectionUnixProcessID s org.freedesktop.DBus | cut -d' ' -f2)"
status=0
wait "$SERVICE_PID" || status=$?
SERVICE_PID=""
check "a service that lost its bus exits with status 1: ready, then the failed-join warning" \
    "$(printf '1\n%s\n%s' "$TAG I Ostrel HAL service is ready." "$TAG W Ostrel HAL failed to join thread pool.")" \
    "$(echo "$status"; log_lines "$SERVICE_LOG")"
finish
