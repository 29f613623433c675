# Bad input over the bus: huge strings, text that is not UTF-8, arrays of the
# wrong size, texts nested too deep. Each gets the planner's answer or a clear
# D-Bus error, and the service keeps serving.
source "$(dirname "$0")/lib.sh"

# A plan whose test-case name holds bytes that are not UTF-8 (a stray byte, a
# cut sequence, a noncharacter that sd-bus refuses, an overlong NUL), as a
# plan file written by anything else might.
printf '{"not_set":false,"current_state":1,"run_start":false,"run_finished":false,"testcases":[{"name":"bad\xff\xc3 name\xef\xbf\xbe\xc0\x80","select":false,"command":"say x","testcase_value":1,"isRound":true,"testcase_current_time":0,"testcase_target_time":0,"testcase_current_round":0,"testcase_target_round":0}]}' > "$PLAN"
start_service
answer=$(call getTest)
check "text that is not UTF-8 is repaired, not a failed call" \
    "$(printf 'bad\xef\xbf\xbd\xef\xbf\xbd name'; printf '\xef\xbf\xbd%.0s' 1 2 3 4 5)" \
    "$(field "$answer" 1 | jq -j '.testcases[0].name')"
check "the reply log carries the same repaired text" \
    "$(printf 'ostrel: test=%s' "$(field "$answer" 1)")" "$(field "$answer" 2 | sed -n 3p)"

# installTesters: HIDL's fixed array is exactly 65536 bytes; anything else is
# refused by the transport with InvalidArgs and never reaches the planner.
for size in 0 3; do
    out=$(dbus-send --system --print-reply --dest="$NAME" "$OBJECT" "$IFACE.installTesters" \
          string:t.bin "array:byte:$(head -c "$size" /dev/zero | tr '\0' 'A' | sed 's/A/0,/g; s/,$//')" \
          uint32:"$size" 2>&1 || true)
    check "an array of $size bytes is refused with InvalidArgs" \
        "Error org.freedesktop.DBus.Error.InvalidArgs: installTesters: data must hold exactly 65536 bytes, got $size" \
        "$out"
done
for size in 65535 65537; do
    check "an array of $size bytes is refused" \
        "error: Call failed: installTesters: data must hold exactly 65536 bytes, got $size" \
        "$(call installTesters sayu t.bin "$size" $(yes 7 | head -n "$size") "$size")"
done
answer=$(call installTesters sayu t.bin 65536 $(yes 7 | head -n 65536) 65536)
check "an array of 65536 bytes is taken (PREPARING answers true)" "true" "$(field "$answer" 1)"
check "installTesters' log holds only its own line: refused arrays never reached the planner" \
    "$(lit 'ostrel: installTesters file=t.bin len=65536\n')" "$(value "$answer" 2)"

# 10 MB strings: a plan that is not JSON leaves the stored plan in force (and
# is answered true), a plan that is JSON is stored; both travel whole through
# the reply log.
before=$(field "$(call getTest)" 1)
head -c 10485760 /dev/zero | tr '\0' 'x' > /tmp/big.txt
"$OSTRELCTL" --json set-test /tmp/big.txt > /tmp/big.out
check "a 10 MB text that is not a plan is answered true" "true" "$(jq -r '.ok' /tmp/big.out)"
check "the 10 MB text comes back whole in the reply log" "10485773" \
    "$(jq -r '.log[1] | length' /tmp/big.out)"
check "the plan in force is unchanged" "$before" "$(field "$(call getTest)" 1)"
{ printf '{"not_set":false,"current_state":1,"testcases":[{"name":"'; cat /tmp/big.txt; printf '","select":false}]}'; } > /tmp/bigplan.json
check "a 10 MB plan is stored" "setTest: ok" "$("$OSTRELCTL" set-test /tmp/bigplan.json)"
check "the 10 MB plan reads back whole" "10485760" \
    "$("$OSTRELCTL" --json get-test | jq -r '.test.testcases[0].name | length')"
check "a 10 MB configuration that is not JSON is refused" "setConfig: refused" \
    "$("$OSTRELCTL" set-config /tmp/big.txt)"

# A text nested a million levels deep is refused like any text that does not parse.
head -c 1000000 /dev/zero | tr '\0' '[' > /tmp/deep.txt
check "a plan nested a million deep is treated as one that does not parse" "setTest: ok" \
    "$("$OSTRELCTL" set-test /tmp/deep.txt)"
check "a configuration nested a million deep is refused" "setConfig: refused" \
    "$("$OSTRELCTL" set-config /tmp/deep.txt)"
check "the service is still up and its plan unchanged" "10485760" \
    "$("$OSTRELCTL" --json get-test | jq -r '.test.testcases[0].name | length')"
check "the service process never died" "yes" "$(service_alive && echo yes)"
finish
