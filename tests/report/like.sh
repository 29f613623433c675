# like GOLDEN DESCRIPTION: standard input through the caller's placeholders filter (a
# function: what differs from run to run made a fixed word) against the file GOLDEN;
# this run's output is kept in /tmp/actual/ under GOLDEN's name (to take it as the golden
# one after review: scripts/devsandbox --bind DIR /tmp/actual -- bash TEST, with the
# test's environment). The last part of a pipeline runs in the calling shell, so that a
# failure counts.
shopt -s lastpipe
like() {
    mkdir -p /tmp/actual
    placeholders > "/tmp/actual/${1##*/}"
    if diff -u --label "$1" --label "this run" "$1" "/tmp/actual/${1##*/}"; then
        echo "ok: $2"
    else
        echo "FAIL: $2"; failures=$((failures + 1))
    fi
}
