# The summary of many runs costs what its input costs: shapes that once took
# gigabytes (records of megabytes of configuration words beside small archives
# with crash lines of many signatures; runs with test cases of their own, which
# made the page runs x test cases) at their smallest size, each format under the
# peak memory bound and the page under 16 times the input plus 1 MiB.
source "$(dirname "$0")/../e2e/lib.sh"
mkdir -p /tmp/shapes && cd /tmp/shapes
/usr/bin/python3 - "$(dirname "$0")" <<'PY'
import json, os, sys
sys.path.insert(0, sys.argv[1])
from hostile_archives import archive, case, plan_of
words = ["word%07d" % i for i in range(100000)]  # about 1.1 MB of configuration words
for shape in ("words", "own"):
    os.makedirs(shape, exist_ok=True)
for run in range(50):
    stem = "words/QAV20261124_%06d" % run
    # 40 signatures (letters tell them apart), each on every device.
    lines = "".join("fault %s%s in unit%d\n" % (chr(97 + k % 26), chr(97 + k // 26), run) for k in range(40))
    archive(stem + ".zip", plan_of([case("soak", "hours", 10, 7200)]), history=lines.encode())
    json.dump({"run_id": "%032x" % run, "device": {"host_name": "device-%d" % run},
               "configuration": {"words": words, "exit_status": 0, "list": None},
               "start": {"time": "2026-11-24T05:00:00Z"}, "end": {"time": "2026-11-24T06:00:00Z", "cause": "executor"},
               "executors": [{"end": {"exit": 0}}]}, open(stem + ".run.json", "w"))
    # 50 test cases no other run has.
    archive("own/QAV20261125_%06d.zip" % run,
            plan_of([case("run %d case %d" % (run, k), "boots", k % 2, 1) for k in range(50)]))
PY
rss_bound=$((128 << 10))
if readelf -s "$OSTRELCTL" | grep -E '__(asan|tsan)_init' >/dev/null; then rss_bound=$((1024 << 10)); fi
for shape in words own; do
    input=$(du -sb "$shape" | cut -f1)
    for format in text json html; do
        read -r status rss _ <<<"$(python3 "$(dirname "$0")/peak_of.py" /tmp/shapes/out /dev/null \
                                   "$OSTRELCTL" report --format "$format" "$shape")"
        size=$(stat -c %s /tmp/shapes/out)
        check "$shape, $format: read, under $((rss_bound >> 10)) MiB ($((rss >> 10)) MiB), the output under 16x the input + 1 MiB ($size of $input bytes)" \
            "1 yes yes" "$status $(yes_if test "$rss" -lt "$rss_bound") $(yes_if test "$size" -le $((16 * input + (1 << 20))))"
    done
done
check "a signature names 10 devices and counts the lines on others" "10 yes" \
    "$("$OSTRELCTL" report --format json words | jq -r '.crash_signatures[0].devices | length') $(yes_if grep -q 'line(s) on others' <("$OSTRELCTL" report words))"
finish
