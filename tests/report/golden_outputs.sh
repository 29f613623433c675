#!/usr/bin/env bash
# The report of every golden archive in every format, and the summary of them all,
# compared with the outputs kept in tests/report/golden/ (with each exit status).
# A change of verdict or wording shows there as a diff to review.
#
#   tests/report/golden_outputs.sh            compare (OSTREL_BUILD_DIR: the build, default build/)
#   tests/report/golden_outputs.sh --refresh  write the outputs of this build as the golden ones
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
build=${OSTREL_BUILD_DIR:-$here/../../build}
ostrelctl=$build/tools/ostrelctl
golden=$here/golden
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

mkdir "$work/archives" "$work/out"
python3 "$here/golden_archives.py" "$work/archives"
cd "$work/archives"
# run NAME ARGS...: ostrelctl report ARGS..., its output in out/NAME, its status in the list.
run() {
    local name=$1 status=0
    shift
    "$ostrelctl" report "$@" >"$work/out/$name" 2>>"$work/out/stderr.txt" || status=$?
    echo "report $* -> $status" >>"$work/out/exit-statuses.txt"
}
for archive in QAV*.zip; do
    stem=${archive%.zip}
    run "$stem.txt" "$archive"
    # Options stand before or after the archive alike.
    run "$stem.json" "$archive" --json
    run "$stem.xml" --format junit "$archive"
    run "$stem.lava" "$archive" --format=lava
done
for format in text json junit lava html; do
    run "summary.$format" --format "$format" .
done
# The hostile set (hostile_archives.py): each command line of golden/refusals.txt
# with its exit status and message; a refusal (exit 2) with what it printed besides.
mkdir "$work/hostile" && python3 "$here/hostile_archives.py" "$work/hostile" && cd "$work/hostile"
sed -n 's/^report \(.*\) -> [0-9]*$/\1/p' "$golden/refusals.txt" | while read -r args; do
    status=0
    # shellcheck disable=SC2086
    "$ostrelctl" report $args >"$work/stdout" 2>"$work/stderr" || status=$?
    echo "report $args -> $status"
    sed 's/^/  /' "$work/stderr"
    [ "$status" -ne 2 ] || sed 's/^/  stdout: /' "$work/stdout"
done >"$work/out/refusals.txt"

if [ "${1:-}" = --refresh ]; then
    find "$golden" -maxdepth 1 -type f -delete
    cp "$work/out"/* "$golden"/
    echo "golden outputs written to $golden"
    exit 0
fi
# Its folders are the sandboxed tests' (a real run, the summary of runs).
if diff -ru -x real-run -x summary-of-runs "$golden" "$work/out"; then
    echo "every output is the golden one ($(ls "$work/out" | wc -l) files)"
else
    echo "FAIL: the outputs differ from the golden ones (tests/report/golden_outputs.sh --refresh writes them)"
    exit 1
fi
