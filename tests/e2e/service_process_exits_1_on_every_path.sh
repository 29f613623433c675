# The service process: it registers after constructing the service, writes its
# platform-log lines, and ends with status 1 on every path: a refused
# registration (name taken, or not allowed to own it) and a lost bus.
source "$(dirname "$0")/lib.sh"
TAG=vendor.brevane.hardware.ostrel@2.0-service
# liblog on the host: "<tag> <priority> <date> <time> <pid> <tid> <message>".
log_lines() { grep -E "^$TAG $1 " "$2" | sed -E 's/^([^ ]+ [A-Z]) [0-9-]+ [0-9:.]+ +[0-9]+ +[0-9]+ /\1 /'; }

# A plan file that cannot be read is replaced inside construction; the service
# still registers.
printf 'not a plan' > "$PLAN"
start_service
check "ready line at info priority, and nothing else from the process" \
    "$TAG I Ostrel HAL service is ready." "$(log_lines '[A-Z]' "$SERVICE_LOG")"
check "the unreadable plan reads as IDLE" "0" "$(call getState)"
check "one thread serves the bus: the process has no other while no run is on" "1" \
    "$(ls /proc/"$SERVICE_PID"/task | wc -l)"

# A second service finds the name taken: one warning, no join, status 1.
status=0
"$SERVICE_BIN" 2>/tmp/second.log || status=$?
check "a second service exits with status 1" "1" "$status"
check "a second service writes only the registration warning" \
    "$TAG W Cannot register Ostrel HAL service" "$(log_lines '[A-Z]' /tmp/second.log)"
check "the first service still serves" "1" "$(call bootCompleted >/dev/null; call getState)"

# Only root may own the name: a service run as another user is refused.
stop_service
status=0
setpriv --reuid 65534 --regid 65534 --clear-groups "$SERVICE_BIN" 2>/tmp/nobody.log || status=$?
check "a service not run as root exits with status 1" "1" "$status"
check "a service not run as root writes the registration warning" \
    "$TAG W Cannot register Ostrel HAL service" "$(log_lines '[A-Z]' /tmp/nobody.log)"
check "the name stays free" "no" "$(name_owned && echo yes || echo no)"

# The bus goes away under a running service: the join returns, status 1.
: > "$SERVICE_LOG"
start_service
daemon=$(busctl call org.freedesktop.DBus /org/freedesktop/DBus org.freedesktop.DBus \
         GetConnectionUnixProcessID s org.freedesktop.DBus | cut -d' ' -f2)
kill "$daemon"
status=0
wait "$SERVICE_PID" || status=$?
SERVICE_PID=""
check "a service that lost its bus exits with status 1" "1" "$status"
check "ready, then the failed-join warning" \
    "$(printf '%s\n' "$TAG I Ostrel HAL service is ready." "$TAG W Ostrel HAL failed to join thread pool.")" \
    "$(log_lines '[A-Z]' "$SERVICE_LOG")"
finish
