#!/usr/bin/python3
"""The whole LAVA engine (database, server, scheduler, publisher, worker) runs
Ostrel's host job on three sandboxed devices at once through lava/lab run, with
the jobs a lab makes with lava/make-jobs.py (device tags, job timeouts):

  ostrel-1  a passing run; then a job whose timeout is shorter than its run (its
            run left RUNNING); then the host job, which aborts and collects it
  ostrel-2  a run whose executor is killed by SIGSEGV; then a job timed out once
            its run ended (left COMPLETING); then the host job, which collects it
  ostrel-3  a run aborted by a step of its job (runAbort after the first reboot)

and the Android job is checked by the server's validation (a copy with a wrong key
must fail it). Checked from what the lab fetched through the REST API: each job's
health and LAVA's own reason for a timeout; LAVA's test cases of every Ostrel run
against `ostrelctl report --format lava` of the same archive (result, measurement,
unit); the verdicts each run must have; the fleet summary against the archives,
device by device, leftovers named as such; and nothing of the lab left running."""
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import time

import yaml

SOURCE = pathlib.Path(os.environ["OSTREL_SOURCE_DIR"])
BUILD = pathlib.Path(os.environ["OSTREL_BUILD_DIR"])
OSTRELCTL = str(BUILD / "tools" / "ostrelctl")
MAKE_JOBS = str(SOURCE / "lava" / "make-jobs.py")

failures = []
facts = []  # "what: value" lines, against golden/lab.txt


def fact(what, value):
    facts.append("%s: %r" % (what, value))


def check(what, expected, actual):
    if expected == actual:
        print("ok: " + what)
        return
    print("FAIL: %s\n  expected: %r\n  actual:   %r" % (what, expected, actual))
    failures.append(what)


def plan(*testcases):
    """A plan document: (name, command, size, boot test) a test case."""
    return json.dumps({"not_set": False, "current_state": 1, "run_start": False, "run_finished": False,
                       "testcases": [{"name": n, "select": True, "command": c, "testcase_value": v, "isRound": True,
                                      "isBootTest": b, "testcase_current_time": 0, "testcase_target_time": 0,
                                      "testcase_current_round": 0, "testcase_target_round": 0}
                                     for n, c, v, b in testcases]})


def make_job(work, name, device, *options, plan_text=None):
    """A job as a lab makes it with lava/make-jobs.py: its device's tag, and the
    plan and timeouts given."""
    argv = ["/usr/bin/python3", MAKE_JOBS, "host", "--tags", device, "--name", "lab test: " + name]
    if plan_text:
        (work / (name + ".json")).write_text(plan_text)
        argv += ["--plan", str(work / (name + ".json"))]
    text = subprocess.run(argv + list(options), check=True, capture_output=True, text=True).stdout
    (work / (name + ".yaml")).write_text(text)
    return work / (name + ".yaml")


def with_abort_step(path):
    """The job with one more test action after its first reboot: a definition
    whose step aborts the run (runAbort), as a lab that ends a run early writes it."""
    job = yaml.safe_load(path.read_text())
    first_boot = next(i for i, a in enumerate(job["actions"]) if "ostrel-boot-1" in str(a))
    abort = {"metadata": {"format": "Lava-Test Test Definition 1.0", "name": "ostrel-abort",
                          "description": "abort the run"},
             "run": {"steps": ["lava-test-case ostrel-run-abort --shell ostrelctl run-abort"]}}
    job["actions"].insert(first_boot + 1, {"test": {"timeout": {"minutes": 1}, "definitions": [
        {"from": "inline", "name": "ostrel-abort", "path": "inline/ostrel-abort.yaml", "repository": abort}]}})
    path.write_text(yaml.safe_dump(job, sort_keys=False))
    return path


def lava_lines(archive, device):
    """What `ostrelctl report --format lava` says of ARCHIVE: (name, result,
    measurement, units) per test case."""
    out = subprocess.run([OSTRELCTL, "report", "--format", "lava", "--device", device, archive],
                         capture_output=True, text=True).stdout
    cases = []
    for line in out.splitlines():
        words = line.split()
        if words[:1] != ["lava-test-case"]:
            continue
        opts = dict(zip(words[2::2], words[3::2]))
        measurement = opts.get("--measurement")
        cases.append((words[1], opts["--result"], None if measurement is None else float(measurement),
                      opts.get("--units", "")))
    return sorted(cases, key=str)


def report_json(archive, device):
    out = subprocess.run([OSTRELCTL, "report", "--format", "json", "--device", device, archive],
                         capture_output=True, text=True).stdout
    return json.loads(out)


def main():
    # The lab's folder where the database's user (postgres) can reach it: in the
    # build tree, or else in the temporary folder.
    base = next(str(d) for d in (BUILD / "tests" / "lava", BUILD, tempfile.gettempdir(), "/tmp")
                if os.path.isdir(d) and subprocess.run(["/usr/sbin/runuser", "-u", "postgres", "--", "test", "-x",
                                                        str(d)]).returncode == 0)
    work = pathlib.Path(tempfile.mkdtemp(prefix="ostrel-lab.", dir=base))
    os.chmod(work, 0o755)  # the database's user must reach the lab's folder in it
    lab_dir = work / "lab"
    watched = [pathlib.Path("/var/lib/lava/dispatcher/tmp"), pathlib.Path("/var/lib/lava-server/default/media")]
    before = {p: sorted(str(q) for q in p.rglob("*")) if p.exists() else None for p in watched}

    jobs = [
        make_job(work, "pass", "ostrel-1"),
        # The executor sleeps through the three reboots, then is killed by SIGSEGV.
        make_job(work, "crash", "ostrel-2", plan_text=plan(("reboots", "sleep 600", 3, True),
                                                           ("crash", "signal SEGV", 1, False))),
        with_abort_step(make_job(work, "abort", "ostrel-3")),
        # Killed by LAVA in its first definition's wait, the run RUNNING.
        make_job(work, "timeout-running", "ostrel-1", "--settle", "120", "--job-timeout", "30s"),
        # Killed by LAVA once the run ended by itself (no boot test), the run COMPLETING.
        make_job(work, "timeout-completing", "ostrel-2", "--settle", "120", "--job-timeout", "30s",
                 plan_text=plan(("greeting", "say hello", 3, False))),
        make_job(work, "after-running", "ostrel-1"),
        make_job(work, "after-completing", "ostrel-2"),
    ]
    android = SOURCE / "lava" / "ostrel-job.yaml"
    broken = work / "android-broken.yaml"
    android_job = yaml.safe_load(android.read_text())
    android_job["actions"][0]["boot"]["methd"] = "minimal"
    broken.write_text(yaml.safe_dump(android_job))

    start = time.monotonic()
    env = dict(os.environ, PATH="/usr/sbin:/usr/bin:/sbin:/bin")
    run = subprocess.run([str(SOURCE / "lava" / "lab"), "run", "--dir", str(lab_dir), "--devices", "3",
                          "--wait", "6", "--validate", str(android), "--validate", str(broken)]
                         + [str(j) for j in jobs], env=env, capture_output=True, text=True)
    seconds = time.monotonic() - start
    print(run.stdout + run.stderr)
    fact("lava/lab run: exit (two jobs Incomplete by their timeouts, a copy of the Android job invalid)", run.returncode)

    done = json.loads((lab_dir / "jobs.json").read_text()) if (lab_dir / "jobs.json").exists() else []
    check("every job fetched, in submission order", [str(j) for j in jobs], [j["file"] for j in done])
    if len(done) != len(jobs):
        return finish(work)
    by_name = {pathlib.Path(j["file"]).stem: j for j in done}
    for j in done:
        fact("%s: its device and LAVA's health" % pathlib.Path(j["file"]).stem, (j["device"], j["health"]))
    detail = {name: json.loads((lab_dir / "results" / str(j["id"]) / "job.json").read_text())
              for name, j in by_name.items()}
    # In the order LAVA made them (its list is not ordered).
    tests = {name: sorted(json.loads((lab_dir / "results" / str(j["id"]) / "tests.json").read_text()),
                          key=lambda c: c["id"])
             for name, j in by_name.items()}
    suites = {name: json.loads((lab_dir / "results" / str(j["id"]) / "suites.json").read_text())
              for name, j in by_name.items()}

    def meta(case):
        return yaml.safe_load(case["metadata"] or "") or {}

    def lava_job_result(name):
        return next((meta(c) for c in tests[name] if suites[name][str(c["suite"])] == "lava" and c["name"] == "job"),
                    {})

    for name in ("timeout-running", "timeout-completing"):
        result = lava_job_result(name)
        fact("%s: LAVA's own reason, its test shell timed out within the job's 30 s" % name,
             (result.get("result"), result.get("error_type"),
              bool(re.fullmatch(r"lava-test-shell timed out after (2[0-9]|30) seconds", result.get("error_msg", "")))))
        fact("%s: the job's own timeout as the lab set it" % name,
             yaml.safe_load(detail[name]["definition"])["timeouts"]["job"])
    for name in ("pass", "crash", "abort", "after-running", "after-completing"):
        fact("%s: LAVA's job result and error" % name,
             (lava_job_result(name).get("result"), lava_job_result(name).get("error_msg")))

    # Every Ostrel run LAVA holds: its test cases (through /tests/) against what
    # ostrelctl report --format lava says of the archive the lab fetched.
    runs = []
    for name, job in by_name.items():
        for run_ in job["runs"]:
            runs.append((name, run_))
            cases = sorted(((c["name"], c["result"], None if c["measurement"] is None else float(c["measurement"]),
                             c["unit"]) for c in tests[name] if meta(c).get("set") == run_["stamp"]), key=str)
            check("%s %s%s: LAVA's test cases are the report's (result, measurement, unit)" % (
                name, run_["stamp"], " (leftover)" if run_["leftover"] else ""),
                lava_lines(run_["archive"], run_["label"]) if run_["archive"] else "an archive", cases)
    for n, suite, leftover in sorted((n, r["suite"], r["leftover"]) for n, r in runs):
        fact("%s: an Ostrel run reported in (leftovers in ostrel-start's results)" % n, (suite, leftover))

    def verdicts(name, leftover=False):
        run_ = next((r for r in by_name[name]["runs"] if r["leftover"] == leftover and r["archive"]), None)
        if run_ is None:
            return "no %srun with an archive" % ("leftover " if leftover else "")
        doc = report_json(run_["archive"], run_["label"])
        return (doc["verdict"], doc["run"]["end_cause"], [f["name"] for f in doc["findings"]],
                {t["name"]: t["verdict"] for t in doc["testcases"]})
    # Verdict, end cause, findings and each test case's verdict: the leftovers of the
    # runs left RUNNING (aborted by the next job) and COMPLETING (collected as it ended).
    for name, leftover in (("pass", False), ("crash", False), ("abort", False), ("after-running", True),
                           ("after-completing", True), ("after-running", False), ("after-completing", False)):
        fact("%s%s: the report of its run" % (name, " (leftover)" if leftover else ""), verdicts(name, leftover))
    fact("crash: LAVA's test cases of the run",
         sorted((c["name"], c["result"], c["measurement"] and float(c["measurement"])) for c in tests["crash"]
                if meta(c).get("set") and c["name"] not in ("crash_history", "run")))
    fact("abort: LAVA's reboots with the boots reached",
         [(c["result"], float(c["measurement"]), c["unit"]) for c in tests["abort"] if c["name"] == "reboots"])

    def start_cases(name):
        return [(c["name"], c["result"]) for c in tests[name] if suites[name][str(c["suite"])] == "0_ostrel-start"
                and not meta(c).get("set")]
    for name in ("after-running", "after-completing", "pass"):
        fact("%s: ostrel-start's steps (a leftover aborted or collected before a new run)" % name, start_cases(name))

    # The fleet summary over every archive: each run with its device, leftovers
    # named as such, and each verdict the archive's own.
    summary = json.loads((lab_dir / "summary.json").read_text())
    check("the summary, device by device: each run's device and verdict as its archive's report says",
          sorted((r["label"], r["archive"], report_json(r["archive"], r["label"])["verdict"]) for _, r in runs),
          sorted((r["device"], r["archive"], r["verdict"]) for r in summary["runs"]))
    fact("the summary's devices", sorted(r["device"] for r in summary["runs"]))
    text = (lab_dir / "summary.txt").read_text()
    page = (lab_dir / "summary.html").read_text()
    fact("the summary's text and page name every device",
         (all(d in text for d in ("ostrel-1-leftover", "ostrel-2-leftover", "ostrel-3")),
          all(d in page for d in ("ostrel-1-leftover", "ostrel-2-leftover", "ostrel-3"))))
    for job in ("ostrel-job", "android-broken"):
        fact("the server's validation of %s" % job,
             json.loads((lab_dir / "results" / ("validate-%s.json" % job)).read_text())["message"][:35])

    # Nothing of the lab left: no process names its folder, the cluster is gone,
    # and LAVA's own folders on the host are as they were.
    left = []
    for proc in pathlib.Path("/proc").iterdir():
        try:
            if proc.name.isdigit() and str(lab_dir) in (proc / "cmdline").read_bytes().decode(errors="replace"):
                left.append(proc.name)
        except OSError:
            pass
    check("after the run: no process of the lab, no database cluster, LAVA's host folders untouched",
          ([], False, before),
          (left, (lab_dir / "db").exists(),
           {p: sorted(str(q) for q in p.rglob("*")) if p.exists() else None for p in watched}))
    state = json.loads((lab_dir / "lab.json").read_text())
    print("lab up in %.1f s, the whole run %.0f s, peak memory %s MiB (PSS)" % (
        state.get("up_seconds", 0), seconds, state.get("peak_pss_mib")))
    golden = pathlib.Path(__file__).parent / "golden" / "lab.txt"
    (work / "lab.txt").write_text("".join(f + "\n" for f in facts))
    diff = subprocess.run(["diff", "-u", "--label", "golden/lab.txt", "--label", "this run", str(golden),
                           str(work / "lab.txt")], capture_output=True, text=True).stdout
    print(diff, end="")
    check("the jobs, runs, verdicts and LAVA's results are the golden ones (golden/lab.txt)", "", diff and "differs")
    return finish(work)


def finish(work):
    if failures:
        print("%d check(s) failed; the lab's folder is kept: %s" % (len(failures), work))
        return 1
    shutil.rmtree(work)
    print("all checks passed")
    return 0


if __name__ == "__main__":
    sys.exit(main())
