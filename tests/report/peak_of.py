"""Runs a command with its standard output and error in files; prints its exit
status, its peak resident size in KiB and the seconds it took.

    peak_of.py OUT ERR COMMAND [ARG...]
"""
import resource
import subprocess
import sys
import time

start = time.monotonic()
with open(sys.argv[1], "wb") as out, open(sys.argv[2], "wb") as err:
    status = subprocess.run(sys.argv[3:], stdout=out, stderr=err).returncode
print(status, resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss, "%.2f" % (time.monotonic() - start))
