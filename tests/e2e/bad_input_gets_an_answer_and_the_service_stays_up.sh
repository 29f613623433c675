# Bad input over the bus (text that is not UTF-8, arrays of the wrong size, 10 MB
# strings, deep nesting) gets an answer or a clear D-Bus error; the service stays up.
source "$(dirname "$0")/lib.sh"

# A plan (PREPARING) whose name is not UTF-8: a stray byte, a cut sequence, a
# noncharacter that sd-bus refuses, an overlong NUL; an unrepaired reply log would fail the call.
plan "$(testcase "$(printf 'bad\xff\xc3 name\xef\xbf\xbe\xc0\x80')" "say x" 1 round false)" > "$PLAN"
start_service
answer=$(call getTest)
check "text that is not UTF-8 is repaired, not a failed call" \
    "$(printf 'bad\xef\xbf\xbd\xef\xbf\xbd name'; printf '\xef\xbf\xbd%.0s' 1 2 3 4 5)" \
    "$(field "$answer" 1 | jq -j '.testcases[0].name')"

# HIDL's fixed array is exactly 65536 bytes; the transport refuses any other size.
for size in 0 3 65535 65537; do
    check "an array of $size bytes is refused" "Call failed: installTesters: data must hold exactly 65536 bytes, got $size" \
        "$(busctl call "$NAME" "$OBJECT" "$IFACE" installTesters sayu t.bin "$size" $(yes 7 | head -n "$size") "$size" 2>&1)"
done
check "the error's name is InvalidArgs" "Error org.freedesktop.DBus.Error.InvalidArgs" "$(dbus-send --system --print-reply \
    --dest="$NAME" "$OBJECT" "$IFACE.installTesters" string:t.bin array:byte:1 uint32:1 2>&1 | cut -d: -f1)"
answer=$(call installTesters sayu t.bin 65536 $(yes 7 | head -n 65536) 65536)
check "an array of 65536 bytes is taken (PREPARING answers true); its log holds only its own line (refused arrays never reached the planner)" \
    "true $(lit 'ostrel: installTesters file=t.bin len=65536\n')" "$(field "$answer" 1) $(value "$answer" 2)"

# 10 MB strings travel whole: a plan is stored and read back; a text that is not
# a plan, and one nested a million deep, are answered true and change nothing.
head -c 10485760 /dev/zero | tr '\0' 'x' > /tmp/big.txt
plan "$(testcase "$(cat /tmp/big.txt)" "say x" 1)" > /tmp/bigplan.json
stored=$(ctl set-test --force /tmp/bigplan.json) || true
check "a 10 MB text that is not a plan is answered true, and comes back whole in the reply log" "true 10485773" \
    "$(ctl --json set-test --force /tmp/big.txt | jq -r '"\(.ok) \(.log[1] | length)"')"
head -c 1000000 /dev/zero | tr '\0' '[' > /tmp/deep.txt
check "a plan nested a million deep is answered true" "setTest: ok" "$(ctl set-test --force /tmp/deep.txt)"
check "a configuration nested a million deep, and a 10 MB one that is not JSON, are refused" \
    "setConfig: refused setConfig: refused" "$(ctl set-config --force /tmp/deep.txt) $(ctl set-config --force /tmp/big.txt)"
check "the 10 MB plan is stored and stays in force, whole; the service still serves" \
    "setTest: ok $(jq -c . /tmp/bigplan.json | md5sum)" "$stored $(ctl get-test | jq -c . | md5sum)"
finish
