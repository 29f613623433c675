# The LAVA job template against LAVA's own job schema (lava-common), strictly (a
# copy with a wrong key deep in a test definition must fail it), and both jobs
# against the server's submission schema (lava-server), which is stricter about an
# inline definition (no params of its own); every inline definition's steps must
# be valid shell; the job is what lava/make-jobs.py makes of lava/definitions/, the
# same definitions as the host job that CI runs.
set -euo pipefail
job=${1:?usage: $0 JOB.yaml}
/usr/bin/python3 - "$job" <<'PY'
import copy, os, subprocess, sys
import yaml
from lava_common.schemas import validate
from voluptuous import Invalid

job = yaml.safe_load(open(sys.argv[1]))
failures = []
def check(what, ok):
    print(("ok: " if ok else "FAIL: ") + what)
    failures.extend([] if ok else [what])
def valid(data):
    try:
        validate(data, strict=True, extra_context_variables=[])
        return True
    except Invalid as e:
        print("  schema: %s" % e)
        return False

check("the job passes LAVA's schema, strictly", valid(job))
bad = copy.deepcopy(job)
bad["actions"][1]["test"]["definitions"][0]["repository"]["run"]["step"] = []
check("a wrong key in an inline test definition fails the schema", not valid(bad))

# The server's own check of a submission, offline (no database is reached).
os.environ["DJANGO_SETTINGS_MODULE"] = "lava_server.settings.prod"
import django
django.setup()
from lava_scheduler_app.schema import SubmissionException, validate_submission
def submittable(data):
    try:
        return validate_submission(data)
    except SubmissionException as e:
        print("  submission: %s" % e)
        return False
host = yaml.safe_load(open(os.path.join(os.path.dirname(sys.argv[1]), "ostrel-host-job.yaml")))
check("the job passes the server's submission schema", submittable(job))
check("the host job passes the server's submission schema", submittable(host))
bad = copy.deepcopy(job)
bad["actions"][1]["test"]["definitions"][0]["repository"]["params"] = {"OSTREL_DUT": "env"}
check("params in an inline definition fail the server's submission schema", not submittable(bad))

definitions = [d for a in job["actions"] if "test" in a for d in a["test"]["definitions"]]
for d in definitions:
    syntax = subprocess.run(["bash", "-n"], input="\n".join(d["repository"]["run"]["steps"]),
                            text=True, capture_output=True)
    check("the steps of %s are valid shell" % d["name"], syntax.returncode == 0 and not syntax.stderr)
check("the last definition reports with ostrelctl report --format lava --exec",
      any("ostrelctl report --format lava --exec" in s for s in definitions[-1]["repository"]["run"]["steps"]))
# The job's values are the first steps of a definition, as sh assignments.
steps = next(d for d in definitions if d["name"] == "ostrel-start")["repository"]["run"]["steps"]
plan = subprocess.run(["sh", "-c", "\n".join(s for s in steps if s.startswith("OSTREL_")) + '\nprintf %s "$OSTREL_PLAN"'],
                      text=True, capture_output=True, check=True).stdout
checked = subprocess.run([os.environ["OSTREL_BUILD_DIR"] + "/tools/ostrelctl", "check-plan", "-"], input=plan,
                         text=True, capture_output=True)
print(checked.stdout + checked.stderr, end="")
check("the job's plan has no problem for ostrelctl check-plan", checked.returncode == 0)
made = subprocess.run([sys.executable, os.path.join(os.path.dirname(sys.argv[1]), "make-jobs.py"), "--check"],
                      text=True, capture_output=True)
print(made.stdout + made.stderr, end="")
check("both jobs are what lava/make-jobs.py makes of lava/definitions/", made.returncode == 0)
sys.exit("%d check(s) failed" % len(failures) if failures else 0)
PY
