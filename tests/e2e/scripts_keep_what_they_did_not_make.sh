# scripts/demo and scripts/device-shell keep a data partition in a folder the user
# names (OSTREL_DEMO_DATA, --data): a folder they did not make is refused with one
# line and left as it was, before anything is built or run. With --whole, the
# README's demo runs end to end (reboots included) on a folder an earlier demo
# made, which it empties first.
source "$(dirname "$0")/lib.sh"
scripts=$OSTREL_SOURCE_DIR/scripts
work=$(mktemp -d "${TMPDIR:-/tmp}/ostrel-demo-test.XXXXXX")
trap 'rm -rf "$work"' EXIT
export OSTREL_BUILD=$BUILD OSTREL_DEMO_PAUSE=2
# The tree below a path: names, kinds and contents.
tree() { (cd "$1" && find . -printf '%p %y\n' | sort && find . -type f -print0 | sort -z | xargs -0r md5sum); }

if [ "${1:-}" == --whole ]; then
    mkdir "$work/data"
    echo "The data partition of scripts/demo" > "$work/data/.ostrel-demo-data"
    mkdir -p "$work/data/vendor/qav/results" && touch "$work/data/vendor/qav/results/QAVstale.zip"
    status=0
    OSTREL_DEMO_DATA=$work/data "$scripts/demo" > "$work/demo.out" 2>&1 || status=$?
    check "the demo runs to its end on an earlier demo's folder, emptied first, its mark kept" \
        "0 1 no yes" \
        "$status $(ls "$work"/data/vendor/qav/results/QAV*.zip | wc -l) \
$(yes_if test -e "$work/data/vendor/qav/results/QAVstale.zip") $(yes_if test -f "$work/data/.ostrel-demo-data")"
    [ "$failures" -eq 0 ] || tail -40 "$work/demo.out"
    finish
    exit 0
fi

mkdir -p "$work/mine/notes"
echo "a week of measurements" > "$work/mine/notes/results.txt"
echo "not a folder" > "$work/file"
not_ours="is not empty and has no %s (the mark of a folder these scripts made): left as it is (remove it yourself if an older script made it)"
demo_note=$(printf "$not_ours" .ostrel-demo-data)
shell_note=$(printf "$not_ours" ".ostrel-device-data .ostrel-demo-data")
# script | folder | its line on standard error
while IFS='|' read -r script folder line; do
    before=$(tree "$work")
    status=0
    case $script in
    demo) out=$(OSTREL_DEMO_DATA=$work/$folder "$scripts/demo" 2>&1) || status=$? ;;
    device-shell) out=$("$scripts/device-shell" --data "$work/$folder" -- true 2>&1) || status=$? ;;
    esac
    check "$script on $folder: refused with exit 2 and one line, nothing changed" \
        "2 1 $script: $work/$folder $line same" \
        "$status $(wc -l <<<"$out") $(head -1 <<<"$out") $([ "$(tree "$work")" == "$before" ] && echo same || echo changed)"
done <<EOF
demo|mine|$demo_note; set OSTREL_DEMO_DATA to a new or empty folder
demo|mine/notes|$demo_note; set OSTREL_DEMO_DATA to a new or empty folder
demo|file|is not a folder; set OSTREL_DEMO_DATA to a new or empty folder
device-shell|mine|$shell_note; give --data a new or empty folder
EOF

# A new folder: the device shell makes it, marks it, and keeps the partition in it.
"$scripts/device-shell" --data "$work/device" -- ostrelctl state >/dev/null
check "device-shell --data on a new folder: made, marked, the partition kept" "yes yes" \
    "$(yes_if test -f "$work/device/.ostrel-device-data") $(yes_if test -s "$work/device/vendor/qav/data/ostreldata.txt")"
finish
