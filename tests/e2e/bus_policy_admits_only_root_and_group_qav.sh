# The bus policy: root owns the name; root and members of group qav (which the
# sandbox's /etc/group has) may call the service; anyone else is refused by the
# bus before the service sees it.
source "$(dirname "$0")/lib.sh"
as_qav() { setpriv --reuid 65534 --regid 65534 --groups 4242 "$@"; }

start_service
check "a caller outside root and qav: the bus's AccessDenied, exit 3" $'ostrelctl: getState failed: org.freedesktop.DBus.Error.AccessDenied\nexit 3' \
    "$(as_nobody "$OSTRELCTL" state 2>&1 | sed 's/: Rejected.*//'; echo "exit ${PIPESTATUS[0]}")"
check "a member of qav may call" "IDLE" "$(as_qav "$OSTRELCTL" state 2>&1)"
check "a member of qav may not own the name" "Call failed: Access denied" \
    "$(as_qav busctl call "${BUS[@]}" RequestName su "$NAME" 4 2>&1 || true)"
finish
