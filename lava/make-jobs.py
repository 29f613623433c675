#!/usr/bin/env python3
"""Writes the two LAVA jobs from the test definitions in lava/definitions/:

  ostrel-job.yaml       an Android device (the template a lab fills in)
  ostrel-host-job.yaml  this project's device sandbox reached over ssh (lava/run-host-job,
                        lava/lab)

Both run the same definitions, inline, so that each job is one file to submit and
the Android job cannot drift from the one that CI runs. A definition reaches the
device only through $OSTREL_DUT; the jobs differ in it, in the plan and in how
LAVA boots the device again.

  make-jobs.py            writes both files
  make-jobs.py --check    compares instead (exit 1 when a committed job differs)
  make-jobs.py host|android [--tags TAG,...] [--job-timeout DURATION] [--plan FILE]
               [--settle SECONDS] [--device-type NAME] [--name TEXT]
                          writes one job to standard output with what a lab sets:
                          the device tags that pick its device, the job timeout
                          (90s, 3m, 2h), its own plan (a JSON file as set-test
                          takes it), the seconds of run before each reboot, the
                          device type (android) and the job's name."""
import argparse
import json
import pathlib
import re
import sys

import yaml

HERE = pathlib.Path(__file__).resolve().parent

ANDROID_HEADER = """\
# LAVA job template: one Ostrel run on an Android device that already has the
# service and ostrelctl in its build. Made by lava/make-jobs.py from
# lava/definitions/ (edit those and run it again); lava/ostrel-host-job.yaml runs
# the same definitions in CI.
#
# The test shell runs in a docker container on the worker and reaches the device
# with adb (OSTREL_DUT is "adb shell -T"), so it outlives every reboot. LAVA powers
# the device on, ostrel-start collects a run that a job LAVA ended early left
# behind, stores the plan (a CPU load test and a boot test of 3 boots) and starts
# the run; LAVA then boots the device again three times, and
# after each boot ostrel-boot sends boot-completed, which counts one boot. Then
# ostrel-result waits for the end of the run, fetches the result, copies the
# archive and the files beside it to the worker and reports every test case there
# with `ostrelctl report --format lava --exec`: what the device wrote is read as
# data on the worker and reaches lava-test-case only as arguments.
#
# Fill in device_type, the docker image (any image with adb and the host build of
# ostrelctl, e.g. one built from debian:bookworm with the adb package and
# `cmake --install` of this project) and the plan.
"""

HOST_HEADER = """\
# LAVA job for this project's device sandbox, run by lava/run-host-job and lava/lab
# (and CI): device type ssh, the test shell in the sandbox over ssh, the same
# definitions as lava/ostrel-job.yaml. A reboot is the device's user command
# "reboot" (the service stopped and started again on the same /data). Made by
# lava/make-jobs.py.
"""

def plan(*testcases):
    """A plan document, one test case a line: (name, command, size, boot test)."""
    lines = ['{"name": "%s", "select": true, "command": "%s", "testcase_value": %d, "isRound": true, '
             '"isBootTest": %s, "testcase_current_time": 0, "testcase_target_time": 0, '
             '"testcase_current_round": 0, "testcase_target_round": 0}' % (n, c, v, str(b).lower())
             for n, c, v, b in testcases]
    return ('{"not_set": false, "current_state": 1, "run_start": false, "run_finished": false,\n'
            ' "testcases": [\n  ' + ",\n  ".join(lines) + "]}\n")


ANDROID_PLAN = plan(("cpu-load", "stress 60", 3, False), ("reboots", "sleep 600", 3, True))
# The executor says hello, then sleeps until the next reboot; after the third boot
# nothing is left of the boot test and it ends by itself.
HOST_PLAN = plan(("greeting", "say hello", 3, False), ("reboots", "sleep 600", 3, True))


def shell_word(text):
    """TEXT as one word of sh, in single quotes."""
    return "'" + text.replace("'", "'\\''") + "'"


def definition(name, parameters, boot):
    """One definition of a test action; LAVA wants a name of its own for each use."""
    text = yaml.safe_load((HERE / "definitions" / (name + ".yaml")).read_text())
    steps = text["run"]["steps"]
    if not all(isinstance(step, str) for step in steps):
        sys.exit("lava/definitions/%s.yaml: a step that is not a string (a ': ' outside a block scalar?)" % name)
    # An inline definition takes no job parameters, and the server's submission
    # schema refuses its own params too (only metadata, install, run and parse):
    # the job's values become the first steps, the assignments LAVA itself would
    # write at the top of the definition's script.
    if "params" in text:
        steps[:0] = ["%s=%s" % (k, shell_word(parameters[k])) for k in text.pop("params")]
    if name in ("ostrel-boot", "adb-ready"):
        name = "%s-%d" % (name, boot)
    return {"from": "inline", "name": name, "path": "inline/%s.yaml" % name, "repository": text}


def test(minutes, names, parameters, docker, boot=0):
    action = {"timeout": {"minutes": minutes}}
    if docker:
        action["docker"] = {"image": "adb-fastboot", "local": True}
    action["definitions"] = [definition(n, parameters, boot) for n in names]
    return {"test": action}


def job(android, plan_text=None, settle=None):
    if android:
        parameters = {"OSTREL_DUT": "adb shell -T", "OSTREL_PLAN": plan_text or ANDROID_PLAN,
                      "OSTREL_SETTLE": settle or "120", "OSTREL_INTERVAL": "30"}
        ready = ["adb-ready"]
        reboot = {"boot": {"method": "minimal", "reset": True, "timeout": {"minutes": 10}}}
        head = {"device_type": "CHANGE-ME", "job_name": "ostrel run with a boot test of 3 boots",
                "priority": "medium", "visibility": "public",
                "timeouts": {"job": {"hours": 3}, "action": {"minutes": 30}, "connection": {"minutes": 2}},
                "metadata": {"ostrel.plan": "CPU load of 3 rounds, boot test of 3 boots"}}
        actions = [reboot]
        minutes = (15, 10, 60)
    else:
        # The test shell runs on the device itself, ostrelctl on its PATH.
        parameters = {"OSTREL_DUT": "env", "OSTREL_PLAN": plan_text or HOST_PLAN, "OSTREL_SETTLE": settle or "0",
                      "OSTREL_INTERVAL": "1"}
        ready = []
        # The server takes no power command (hard_reset) for a device reached over
        # ssh as its primary connection: it marks such a device Bad and never
        # schedules it. The reboot is a user command of the device dictionary.
        reboot = {"command": {"name": "reboot", "timeout": {"minutes": 1}}}
        head = {"device_type": "ssh", "job_name": "ostrel run in the device sandbox, a boot test of 3 boots",
                "priority": "medium", "visibility": "public",
                "timeouts": {"job": {"minutes": 3}, "action": {"minutes": 1}, "connection": {"minutes": 1}},
                "metadata": {"ostrel.plan": "a greeting of 3 rounds, boot test of 3 boots"}}
        # A run takes about 16 s: a step that hangs fails the job in a minute or two.
        actions = [{"deploy": {"to": "ssh", "os": "debian", "timeout": {"minutes": 1}}},
                   {"boot": {"method": "ssh", "connection": "ssh", "prompts": ["ostrel-device# "],
                             "timeout": {"minutes": 1}}}]
        minutes = (1, 1, 1)
    actions.append(test(minutes[0], ready + ["ostrel-start"], parameters, android))
    for boot in range(3):
        actions.append(reboot)
        last = boot == 2
        actions.append(test(minutes[2] if last else minutes[1],
                            ready + ["ostrel-boot"] + (["ostrel-result"] if last else []), parameters, android,
                            boot + 1))
    return dict(head, actions=actions)


class Dumper(yaml.SafeDumper):
    def ignore_aliases(self, data):
        return True


def literal(dumper, text):
    return dumper.represent_scalar("tag:yaml.org,2002:str", text, style="|" if "\n" in text else None)


Dumper.add_representer(str, literal)


def text(android, data=None):
    body = yaml.dump(data or job(android), Dumper=Dumper, sort_keys=False, width=100, allow_unicode=True)
    return (ANDROID_HEADER if android else HOST_HEADER) + body


def duration(text):
    """A LAVA timeout from 90s, 3m or 2h."""
    match = re.fullmatch(r"([1-9][0-9]*)([smh])", text)
    if not match:
        raise argparse.ArgumentTypeError("%r is not a duration such as 90s, 3m or 2h" % text)
    unit = {"s": "seconds", "m": "minutes", "h": "hours"}[match.group(2)]
    return {unit: int(match.group(1))}


def lab_job(argv):
    """One job as a lab submits it, on standard output."""
    parser = argparse.ArgumentParser(prog="make-jobs.py", description="one Ostrel job for a lab")
    parser.add_argument("kind", choices=["host", "android"])
    parser.add_argument("--tags", default="", help="device tags, comma-separated")
    parser.add_argument("--job-timeout", type=duration, help="90s, 3m, 2h")
    parser.add_argument("--plan", type=pathlib.Path, help="a plan document (JSON)")
    parser.add_argument("--settle", type=int, help="seconds of run before each reboot")
    parser.add_argument("--device-type", help="the device type (android)")
    parser.add_argument("--name", help="the job's name")
    options = parser.parse_args(argv)
    android = options.kind == "android"
    plan_text = None
    if options.plan:
        try:
            plan_text = options.plan.read_text()
            json.loads(plan_text)
        except (OSError, ValueError) as error:
            parser.error("--plan %s: %s" % (options.plan, error))
    data = job(android, plan_text, None if options.settle is None else str(options.settle))
    if options.plan:
        data["metadata"]["ostrel.plan"] = "the plan in " + options.plan.name
    if options.job_timeout:
        data["timeouts"]["job"] = options.job_timeout
    if options.device_type:
        data["device_type"] = options.device_type
    if options.name:
        data["job_name"] = options.name
    tags = [t for t in options.tags.split(",") if t]
    if tags:
        actions = data.pop("actions")  # the tags before the actions, as a lab writes them
        data.update(tags=tags, actions=actions)
    sys.stdout.write(text(android, data))
    return 0


def main(argv):
    if argv[1:2] and argv[1] in ("host", "android"):
        return lab_job(argv[1:])
    check = argv[1:] == ["--check"]
    differs = []
    for name, android in (("ostrel-job.yaml", True), ("ostrel-host-job.yaml", False)):
        path = HERE / name
        if not check:
            path.write_text(text(android))
        elif not path.exists() or path.read_text() != text(android):
            differs.append(name)
    for name in differs:
        print("lava/%s differs from what lava/make-jobs.py makes" % name)
    return 1 if differs else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
