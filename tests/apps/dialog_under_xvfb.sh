#!/usr/bin/env bash
# vxdicom's load and save dialogs on Xvfb, answered with xdotool; a hang fails.
# dialog_under_xvfb.sh VXDICOM SHARED_DATA_DIR (77: skipped)
set -uo pipefail
vxdicom="$1"
series="$2/dcm_qa_decubitus/In"
for tool in xvfb-run xdotool; do
    command -v "$tool" >/dev/null || { echo "skipped: $tool is missing"; exit 77; }
done
[ -d "$series" ] || { echo "skipped: $series not found"; exit 77; }
if [ -z "${VX_UNDER_XVFB:-}" ]; then
    export VX_UNDER_XVFB=1
    exec xvfb-run -a -s "-screen 0 1280x1024x24" "$0" "$@"
fi
unset QT_QPA_PLATFORM # Xvfb's display, not the offscreen platform
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
export VXDICOM_SETTINGS_FILE="$work/settings.ini"
failures=0
fail() { echo "FAIL $*"; failures=$((failures + 1)); }

# run NAME TITLE ACTION COMMAND...: answers the window TITLE with ACTION (a key
# or sigint) once shown; leaves the exit status in $status, the output in $work/NAME.*
run() {
    local name="$1" title="$2" action="$3" window
    shift 3
    timeout 120 "$vxdicom" "$@" >"$work/$name.out" 2>"$work/$name.err" &
    local pid=$!
    window="$(timeout 60 xdotool search --sync --onlyvisible --name "^$title\$" | head -1)"
    if [ -z "$window" ]; then
        fail "$name: $title was not shown within 60 s"
    elif [ "$action" = sigint ]; then
        kill -INT "$pid"
    else
        xdotool windowfocus --sync "$window" key "$action"
        [ "$name" != save ] || xdotool windowfocus --sync \
            "$(timeout 60 xdotool search --sync --onlyvisible --name '^DICOM files written$' | head -1)" key Return
    fi
    status=0
    wait "$pid" || status=$?
    [ "$status" -ne 124 ] || fail "$name: vxdicom did not return within 120 s"
    echo "$name: exit status $status; written: $(ls "$work/$name" 2>/dev/null | wc -l) files"
}
empty() { [ -z "$(ls "$work/$1" 2>/dev/null)" ]; }

mkdir -p "$work/ok" "$work/escape" "$work/sigint"
run ok "DICOM Loader" Return load "$series" -o "$work/ok"
[ "$status" -eq 0 ] && [ -s "$work/ok/HFS.nii.gz" ] || fail "ok: status $status: $(cat "$work/ok.err")"
grep -q '^field "HFS" .*: 35 x 256 x 256 int16' "$work/ok.out" || fail "ok: no field summary"
run escape "DICOM Loader" Escape load "$series" -o "$work/escape"
[ "$status" -eq 1 ] && empty escape || fail "escape: status $status or something was saved"
grep -q 'cancelled in the import dialog; nothing was loaded' "$work/escape.err" || fail "escape: not reported"
run sigint "DICOM Loader" sigint load "$series" -o "$work/sigint"
[ "$status" -ne 0 ] && empty sigint || fail "sigint: status 0 or something was saved"
run save "Save as DICOM" Return save-dicom "$series" -o "$work/save" --edit
[ "$status" -eq 0 ] && [ "$(ls "$work/save" | wc -l)" -eq 256 ] || fail "save: $(cat "$work/save.err")"
run save-escape "Save as DICOM" Escape save-dicom "$series" -o "$work/save-escape" --edit
[ "$status" -eq 1 ] && empty save-escape || fail "save-escape: status $status or files written"
grep -q 'cancelled; nothing was written' "$work/save-escape.err" || fail "save-escape: not reported"

[ "$failures" -eq 0 ] || exit 1
echo "all runs ended as expected"
