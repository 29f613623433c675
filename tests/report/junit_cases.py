"""A JUnit file as junitparser reads it: each suite with its counts, then each of its
test cases' name, classname and results (an error with its type), or pass.

    junit_cases.py FILE.xml
"""
import sys

from junitparser import JUnitXml

for suite in JUnitXml.fromfile(sys.argv[1]):
    print(f"suite {suite.name} tests={suite.tests} failures={suite.failures} errors={suite.errors} skipped={suite.skipped}")
    for case in suite:
        print(case.name, case.classname, " ".join(type(r).__name__ + (f" {r.type}" if type(r).__name__ == "Error" else "")
                                              for r in case.result) or "pass")
