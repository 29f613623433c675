"""The client's cost on inputs that once took gigabytes, as they double: per shape,
size and format, the peak resident size and the time of `ostrelctl`, and the ratio
of each against the size before it (about 2 for linear growth, 1 for bounded).

    client_shapes.py OSTRELCTL WORKDIR [SIZES...]    (default sizes 50 100 200 400)

Shapes: "words", records of 100 KB of configuration words beside small archives
with 40 crash signatures each (N runs); "own", N runs of N test cases of their
own; "plan", check-plan of a plan of N x 2,500 test cases of one key each (a million
in 16 MB at 400), every one with problems; "retry", with OSTREL_BENCH_RECORD set
to a run record of the service that runs (scripts/bench sets it), retry of a result
of N x 2,500 such test cases beside a copy of that record, over the bus (the plan's
check refuses it before anything is stored: what is measured is the client).
Prints rows of the bench table; never judges a figure.
"""
import json
import os
import resource
import shutil
import subprocess
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "report"))
from hostile_archives import archive, case, plan_of  # noqa: E402

WORDS = ["word%07d" % i for i in range(9000)]  # about 100 KB


def make(shape, n, folder):
    os.makedirs(folder)
    if shape == "retry":
        # The same test cases, archived as a run's result with the service's own record.
        stem = os.path.join(folder, "QAV20261124_000000")
        archive(stem + ".zip", '{"current_state":3,"testcases":[' + ",".join(['{"select":true}'] * (n * 2500)) + "]}")
        shutil.copy(os.environ["OSTREL_BENCH_RECORD"], stem + ".run.json")
        return
    if shape == "plan":
        # Test cases of one key each, every one missing what the planner reads:
        # 400 x 2,500 of them is a million in 16 MB, a plan's bound.
        with open(os.path.join(folder, "plan.json"), "w") as f:
            f.write('{"current_state":1,"testcases":[' + ",".join(['{"select":true}'] * (n * 2500)) + "]}")
        return
    for run in range(n):
        stem = os.path.join(folder, "QAV20261124_%06d" % run)
        if shape == "words":
            lines = "".join("fault %s%s in unit%d\n" % (chr(97 + k % 26), chr(97 + k // 26), run) for k in range(40))
            archive(stem + ".zip", plan_of([case("soak", "hours", 10, 7200)]), history=lines.encode())
            json.dump({"run_id": "%032x" % run, "device": {"host_name": "device-%d" % run},
                       "configuration": {"words": WORDS, "exit_status": 0, "list": None},
                       "start": {"time": "2026-11-24T05:00:00Z"},
                       "end": {"time": "2026-11-24T06:00:00Z", "cause": "executor"},
                       "executors": [{"end": {"exit": 0}}]}, open(stem + ".run.json", "w"))
        else:
            archive(stem + ".zip", plan_of([case("run %d case %d" % (run, k), "boots", k % 2, 1) for k in range(n)]))


def measure(args):
    """Peak resident KiB, seconds and output bytes of one ostrelctl call (a process
    of its own, so that its peak is its own)."""
    probe = ("import resource, subprocess, sys, time\n"
             "t = time.monotonic()\n"
             "r = subprocess.run(sys.argv[1:], stdout=subprocess.PIPE, stderr=subprocess.PIPE)\n"
             "out = r.stdout + r.stderr\n"
             "print(resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss, time.monotonic() - t, len(out))\n")
    rss, seconds, size = subprocess.run([sys.executable, "-c", probe, *args], capture_output=True,
                                        text=True).stdout.split()
    return int(rss), float(seconds), int(size)


def main():
    ostrelctl, work = sys.argv[1], sys.argv[2]
    sizes = [int(s) for s in sys.argv[3:]] or [50, 100, 200, 400]
    shapes = [("words", ["text", "json", "html"]), ("own", ["text", "json", "html"]), ("plan", ["check-plan"])]
    if os.environ.get("OSTREL_BENCH_RECORD"):
        shapes.append(("retry", ["retry"]))
    for shape, formats in shapes:
        before = {}
        for n in sizes:
            folder = os.path.join(work, "%s-%d" % (shape, n))
            make(shape, n, folder)
            input_bytes = sum(os.path.getsize(os.path.join(folder, f)) for f in os.listdir(folder))
            for fmt in formats:
                args = ([ostrelctl, "check-plan", os.path.join(folder, "plan.json")] if fmt == "check-plan"
                        else [ostrelctl, "retry", os.path.join(folder, "QAV20261124_000000.zip")] if fmt == "retry"
                        else [ostrelctl, "report", "--format", fmt, folder])
                rss, seconds, size = measure(args)
                many = shape in ("plan", "retry")
                label = "%s %s, %d%s" % (shape, fmt, n * 2500 if many else n, " test cases" if many else " runs")
                if fmt in before:
                    r0, s0 = before[fmt]
                    ratio = "time x%.1f, memory x%.2f of half the size" % (seconds / max(s0, 1e-6), rss / r0)
                else:
                    ratio = "-"
                print("| client %s | peak %.1f MiB, %.3f s, output %.1f KiB | input %.1f KiB | %s |"
                      % (label, rss / 1024, seconds, size / 1024, input_bytes / 1024, ratio))
                before[fmt] = (rss, seconds)
            shutil.rmtree(folder)


if __name__ == "__main__":
    main()
