# lava/ostrel-host-job.yaml run by lava-run (lava/run-host-job), judged from LAVA's
# own results lines: each test case's definition, name, result, measurement and
# unit, and the job's result. Then the same job with a plan the service refuses:
# LAVA reports that step's failure, and the job completes (the run then has no
# selected test case, an error, and its reboots were unplanned); and one whose run
# ends before the last definition, whose result is still collected.
source "$(dirname "$0")/../e2e/lib.sh"
job=$OSTREL_SOURCE_DIR/lava/ostrel-host-job.yaml
work=$(mktemp -d "${TMPDIR:-/tmp}/ostrel-lava-test.XXXXXX")
trap 'rm -rf "$work"' EXIT

# results LOG: one line per test case and per definition's run (LAVA's own
# rows of a definition, the job), the archive's stamp masked.
results() {
    /usr/bin/python3 - "$1" <<'PY'
import re, sys, yaml
class Loader(yaml.SafeLoader):
    pass
# LAVA tags some values with "!": read them as plain scalars.
Loader.add_multi_constructor("", lambda loader, tag, node: loader.construct_scalar(node))
Loader.add_constructor("!", lambda loader, node: loader.construct_scalar(node))
for line in open(sys.argv[1]):
    if not line.startswith("{") or '"lvl": "results"' not in line:
        continue
    msg = yaml.load(line, Loader=Loader)["msg"]
    if msg["definition"] == "lava" and not re.match(r"\d+_|job$", msg["case"]):
        continue
    if msg["case"] == "run" and "measurement" in msg:
        msg["measurement"] = "N"  # the run's seconds
    print(" ".join(str(msg[k]) for k in ("definition", "case", "result", "measurement", "units", "set") if k in msg))
PY
}
stamp='QAV[0-9]{8}_[0-9]{6}$'
golden=$(dirname "$0")/golden
# judged NAME JOB DESCRIPTION: JOB run by lava-run; its exit status and LAVA's results
# lines against golden/NAME.txt.
judged() {
    local status=0
    "$OSTREL_SOURCE_DIR/lava/run-host-job" "$2" > "$work/$1.log" 2>&1 || status=$?
    check "$3" "$(cat "$golden/$1.txt")" "$status
$(results "$work/$1.log" | sed -E "s/$stamp/QAV/")"
    [ "$failures" -eq 0 ] || tail -40 "$work/$1.log"
}
start=$SECONDS
judged passes "$job" "lava-run runs the host job: every step and test case passes, the report's with its measurement and unit"

# variant OUT PLAN [MAKE-JOBS OPTION...]: the host job as lava/make-jobs.py makes
# it for a lab, with the plan PLAN (and the options), written to OUT.
variant() {
    local out=$1 plan=$2
    shift 2
    printf '%s' "$plan" > "$out.plan.json"
    /usr/bin/python3 "$OSTREL_SOURCE_DIR/lava/make-jobs.py" host --plan "$out.plan.json" "$@" > "$out"
}

# The same job with a plan of size 0, which set-test refuses.
variant "$work/refused.yaml" "$(plan "$(testcase greeting 'say hello' 0)" "$(testcase reboots 'sleep 600' 0 boot)")"
judged refused-plan "$work/refused.yaml" "a plan the service refuses: LAVA reports ostrel-set-test as failed, no test case of the plan; the job completes"

# A run that ends before the last definition: no boot test, and 12 s of settle
# time after the start (the executor's end is seen at the first tick, within 10 s).
# The reboots then find the run ended; the last definition still fetches the result.
variant "$work/early.yaml" "$(plan "$(testcase greeting 'say hello' 3)")" --settle 12
judged ends-early "$work/early.yaml" "a run that ends before the last definition (settle 12 s): the result is collected and reported"
echo "three jobs in $((SECONDS - start)) s"
finish
