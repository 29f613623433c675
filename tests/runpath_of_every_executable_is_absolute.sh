# Every executable of the build tree, and as installed, looks for libraries only in
# absolute folders (or beside itself, $ORIGIN): an empty or relative RUNPATH element
# means the current directory, where a library planted beside an archive would load.
set -euo pipefail
build=${1:?usage: $0 BUILD-DIR}
stage=$(mktemp -d)
trap 'rm -rf "$stage"' EXIT
DESTDIR=$stage cmake --install "$build" >/dev/null

failures=0 checked=0
while IFS= read -r -d '' file; do
    head -c 4 "$file" | grep -q $'\x7fELF' || continue
    readelf -d "$file" | grep -qE '\((NEEDED)\)' || continue
    checked=$((checked + 1))
    paths=$(readelf -d "$file" | sed -nE 's/.*\((RUNPATH|RPATH)\).*\[(.*)\]$/\2/p')
    [ -n "$paths" ] || continue
    IFS=: read -r -a elements <<<"$paths:"
    # read -a drops a trailing empty field; the ':' added above keeps the real last one.
    for element in "${elements[@]}" ; do
        case "$element" in
            /*|'$ORIGIN'|'$ORIGIN/'*) ;;
            *) echo "FAIL: $file: RUNPATH [$paths] holds the element \"$element\""; failures=$((failures + 1)) ;;
        esac
    done
done < <(find "$build" "$stage" -path '*/CMakeFiles' -prune -o -type f -perm -u+x -print0)
echo "$checked executables read"
[ "$checked" -gt 10 ] || { echo "FAIL: too few executables found"; exit 1; }

# A libz.so.1 planted in the working directory, as beside an archive pulled off a
# device, is never loaded: its constructor would end the process with 42.
printf '#include <unistd.h>\n__attribute__((constructor)) static void planted(void) { _exit(42); }\n' > "$stage/planted.c"
cc -shared -fPIC -o "$stage/libz.so.1" "$stage/planted.c"
status=0
(cd "$stage" && "$build/tools/ostrelctl" report QAVnone.zip 2>/dev/null) || status=$?
[ "$status" -eq 2 ] || { echo "FAIL: ostrelctl report beside a planted libz.so.1 exited $status: the planted library was loaded"; exit 1; }
echo "ok: a planted libz.so.1 is not loaded"
[ "$failures" -eq 0 ] || exit 1
echo "all checks passed"
