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

if [ "${1:-}" = --refresh ]; then
    rm -rf "$golden"
    cp -r "$work/out" "$golden"
    echo "golden outputs written to $golden"
    exit 0
fi
if diff -ru "$golden" "$work/out"; then
    echo "every output is the golden one ($(ls "$golden" | wc -l) files)"
else
    echo "FAIL: the outputs differ from the golden ones (tests/report/golden_outputs.sh --refresh writes them)"
    exit 1
fi
