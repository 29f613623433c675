# The bus policy: root owns the name; root and members of group qav may call
# the service; anyone else is refused by the bus before the service sees it.
source "$(dirname "$0")/lib.sh"
as_qav() { setpriv --reuid 65534 --regid 65534 --groups 4242 "$@"; }

start_service
status=0
out=$(as_nobody "$OSTRELCTL" state 2>&1) || status=$?
check "a caller outside root and qav: exit 3 and the bus's AccessDenied" \
    "3 ostrelctl: getState failed: org.freedesktop.DBus.Error.AccessDenied" "$status ${out%%: Rejected*}"
check "a refused call never reached the service (no lines in its log)" \
    "$(lit 'ostrel: Ostrel\nostrel: getConfig\nostrel: config=\n')" "$(value "$(call getConfig)" 2)"

# The host has no group qav: give the sandbox one and let the bus re-read it
# (the policy's group is resolved when the configuration is loaded).
{ cat /etc/group; echo "qav:x:4242:"; } > /tmp/group
mount --bind /tmp/group /etc/group
busctl call org.freedesktop.DBus /org/freedesktop/DBus org.freedesktop.DBus ReloadConfig
sleep 0.2
check "a member of qav may call" "IDLE" "$(as_qav "$OSTRELCTL" state 2>&1)"
check "a caller outside qav is still refused" "3" "$(status_of as_nobody "$OSTRELCTL" state)"
check "a member of qav may not own the name" "Call failed: Access denied" \
    "$(as_qav busctl call org.freedesktop.DBus /org/freedesktop/DBus org.freedesktop.DBus \
       RequestName su "$NAME" 4 2>&1 || true)"
finish
