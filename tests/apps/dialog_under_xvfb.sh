#!/usr/bin/env bash
# vxdicom's dialogs on a real X display (Xvfb), answered from outside with
# xdotool as a user answers them. load: OK saves the field and exits 0, Esc
# loads nothing and exits 1, Ctrl-C (SIGINT) ends the program. save-dicom
# --edit: Save writes the files, Esc writes nothing. Every run must end within
# its time limit: a hang fails the test.
#   dialog_under_xvfb.sh VXDICOM_BINARY SHARED_DATA_DIR
# Exit status 77 (skipped) without xvfb-run, xdotool or the shared files.
set -uo pipefail
vxdicom="$1"
data="$2"
for tool in xvfb-run xdotool; do
    command -v "$tool" >/dev/null || { echo "skipped: $tool is missing"; exit 77; }
done
series="$data/dcm_qa_decubitus/In"
[ -d "$series" ] || { echo "skipped: $series not found (../shared/data is not beside the checkout)"; exit 77; }
if [ -z "${VX_UNDER_XVFB:-}" ]; then
    export VX_UNDER_XVFB=1
    exec xvfb-run -a -s "-screen 0 1280x1024x24" "$0" "$@"
fi
unset QT_QPA_PLATFORM # the display of Xvfb, not the offscreen platform
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
export VXDICOM_SETTINGS_FILE="$work/settings.ini"
failures=0
fail() { echo "FAIL $*"; failures=$((failures + 1)); }

# run NAME ACTION: loads the series with the dialog, answers it with ACTION
# once it is shown, and leaves the exit status in $status.
run() {
    local name="$1" action="$2" dir="$work/$1"
    mkdir -p "$dir/fields"
    timeout 120 "$vxdicom" load "$series" -o "$dir/fields" >"$dir/stdout" 2>"$dir/stderr" &
    local pid=$!
    local window
    window="$(timeout 60 xdotool search --sync --onlyvisible --name '^DICOM Loader$' | head -1)"
    if [ -z "$window" ]; then
        fail "$name: the dialog was not shown within 60 s"
        kill "$pid" 2>/dev/null
    else
        case "$action" in
        ok) xdotool windowfocus --sync "$window" key Return ;;
        escape) xdotool windowfocus --sync "$window" key Escape ;;
        sigint) kill -INT "$pid" ;;
        esac
    fi
    status=0
    wait "$pid" || status=$?
    [ "$status" -ne 124 ] || fail "$name: vxdicom load did not return within 120 s"
    echo "$name: exit status $status; saved: $(ls "$dir/fields" | tr '\n' ' ')"
}

run ok ok
[ "$status" -eq 0 ] || fail "ok: exit status $status, expected 0: $(cat "$work/ok/stderr")"
[ -s "$work/ok/fields/HFS.nii.gz" ] || fail "ok: HFS.nii.gz was not saved"
grep -q '^field "HFS" .*: 35 x 256 x 256 int16' "$work/ok/stdout" || fail "ok: no field summary"

run escape escape
[ "$status" -eq 1 ] || fail "escape: exit status $status, expected 1"
[ -z "$(ls "$work/escape/fields")" ] || fail "escape: something was saved"
grep -q 'cancelled in the import dialog; nothing was loaded' "$work/escape/stderr" ||
    fail "escape: the cancel was not reported"

run sigint sigint
[ "$status" -ne 0 ] || fail "sigint: exit status 0 after an interrupt"
[ -z "$(ls "$work/sigint/fields")" ] || fail "sigint: something was saved"

# save-dicom --edit: Save writes the files (and its report box is answered),
# Esc writes nothing.
for answer in save escape; do
    dir="$work/save-$answer"
    timeout 120 "$vxdicom" save-dicom "$series" -o "$dir" --edit >"$dir.out" 2>"$dir.err" &
    pid=$!
    window="$(timeout 60 xdotool search --sync --onlyvisible --name '^Save as DICOM$' | head -1)"
    if [ "$answer" = save ]; then
        xdotool windowfocus --sync "$window" key Return
        report="$(timeout 60 xdotool search --sync --onlyvisible --name '^DICOM files written$' | head -1)"
        xdotool windowfocus --sync "$report" key Return
    else
        xdotool windowfocus --sync "$window" key Escape
    fi
    status=0
    wait "$pid" || status=$?
    count=$(ls "$dir" 2>/dev/null | wc -l)
    echo "save-dicom --edit, $answer: exit status $status, $count files"
    if [ "$answer" = save ]; then
        [ "$status" -eq 0 ] && [ "$count" -eq 256 ] || fail "save: $(cat "$dir.err")"
    else
        [ "$status" -eq 1 ] && [ "$count" -eq 0 ] || fail "escape: status $status, $count files"
        grep -q 'cancelled; nothing was written' "$dir.err" || fail "escape: the cancel was not reported"
    fi
done

[ "$failures" -eq 0 ] || exit 1
echo "all runs ended as expected"
