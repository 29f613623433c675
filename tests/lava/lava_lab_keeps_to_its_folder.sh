# lava/lab touches only what it made: it refuses a folder that is not a lab's (and
# one whose path a device's dictionary could not hold) before it starts anything,
# and its down ends a process by its id only while that id is still the process
# it started (the kernel's start time of it), never one that took the id since.
# lava/make-jobs.py refuses a job timeout or a plan it cannot write.
set -euo pipefail
source "$(dirname "$0")/../e2e/lib.sh"
export PATH=/usr/sbin:/usr/bin:/sbin:/bin
lab=$OSTREL_SOURCE_DIR/lava/lab
work=$(mktemp -d "${TMPDIR:-/tmp}/ostrel-lab-guard.XXXXXX")
pids=()
cleanup() { for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done; rm -rf "$work"; }
trap cleanup EXIT

mkdir "$work/theirs" && echo kept > "$work/theirs/notes.txt"
status=0; out=$("$lab" up --dir "$work/theirs" --devices 1 2>&1) || status=$?
check "up in a folder that is not a lab's: refused (exit 2), nothing of it touched, nothing made" \
    "2 yes notes.txt" "$status $(yes_if grep -q 'is not empty and has no .ostrel-lab' <<<"$out") $(ls "$work/theirs")"

status=0; out=$("$lab" up --dir "$work/with space" --devices 1 2>&1) || status=$?
check "up in a folder whose path has a space: refused (exit 2) before anything starts" \
    "2 yes no" "$status $(yes_if grep -q 'only letters, digits' <<<"$out") $(yes_if test -e "$work/with space")"

# The lab's devices are folders bound writable into the device sandbox; the lab's
# folder may lie in a build tree outside the project, which the sandbox shows
# read-only: the bound folder in it stays writable.
mkdir -p "$work/build/lab/device"
OSTREL_BUILD_DIR=$work/build "$OSTREL_SOURCE_DIR/scripts/devsandbox" --no-bus --bind "$work/build/lab/device" \
    "$work/build/lab/device" -- sh -c "echo on > '$work/build/lab/device/power'" 2>/dev/null || true
check "a folder bound into the device sandbox from a build tree outside the project stays writable" "on" \
    "$(cat "$work/build/lab/device/power" 2>/dev/null)"

# A lab's state naming two processes of this test: one still the process the lab
# would have started, one whose id now belongs to another (its start time differs).
started_at() { awk '{print $22}' "/proc/$1/stat"; }
sleep 300 & ours=$!; pids+=("$ours")
sleep 300 & other=$!; pids+=("$other")
mkdir "$work/lab" && touch "$work/lab/.ostrel-lab"
cat > "$work/lab/lab.json" <<JSON
{"dir": "$work/lab", "devices": [], "ports": {"http": 1},
 "processes": [{"name": "worker", "pid": $ours, "start": $(started_at "$ours")},
               {"name": "scheduler", "pid": $other, "start": $(( $(started_at "$other") + 1 ))}]}
JSON
status=0; "$lab" down --dir "$work/lab" >/dev/null 2>&1 || status=$?
wait "$ours" 2>/dev/null || true
check "down: the process it started ended by its id, the one that took another's id left running" \
    "0 ended running" "$status $(kill -0 "$ours" 2>/dev/null && echo running || echo ended) $(kill -0 "$other" 2>/dev/null && echo running || echo ended)"
check "down: the state says nothing is left to end" "[]" "$(jq -c .processes "$work/lab/lab.json")"

status=0; "$OSTREL_SOURCE_DIR/lava/make-jobs.py" host --job-timeout 3x >/dev/null 2>&1 || status=$?
echo '{"testcases": [' > "$work/bad-plan.json"
status2=0; "$OSTREL_SOURCE_DIR/lava/make-jobs.py" host --plan "$work/bad-plan.json" >/dev/null 2>&1 || status2=$?
made=$("$OSTREL_SOURCE_DIR/lava/make-jobs.py" host --tags ostrel-2,fast --job-timeout 90s)
check "make-jobs.py: a timeout it cannot read and a plan that is not JSON refused (exit 2); tags and timeout as given" \
    "2 2 [\"ostrel-2\",\"fast\"] {\"seconds\":90}" \
    "$status $status2 $(/usr/bin/python3 -c 'import json, sys, yaml; j = yaml.safe_load(sys.stdin); print(json.dumps(j["tags"], separators=(",", ":")), json.dumps(j["timeouts"]["job"], separators=(",", ":")))' <<<"$made")"
finish
