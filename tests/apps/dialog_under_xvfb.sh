#!/usr/bin/env bash
# vxdicom's load and save dialogs on Xvfb, answered with xdotool; a hang fails.
# dialog_under_xvfb.sh VXDICOM SHARED_DATA_DIR (77: skipped)
set -uo pipefail
vxdicom="$1" series="$2/dcm_qa_decubitus/In"
command -v xvfb-run >/dev/null && command -v xdotool >/dev/null && [ -d "$series" ] ||
    { echo "skipped: xvfb-run, xdotool or $series is missing"; exit 77; }
[ -n "${VX_UNDER_XVFB:-}" ] || VX_UNDER_XVFB=1 exec xvfb-run -a -s "-screen 0 1280x1024x24" "$0" "$@"
unset QT_QPA_PLATFORM # Xvfb's display, not the offscreen platform
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
export VXDICOM_SETTINGS_FILE="$work/settings.ini"
failures=0
fail() { echo "FAIL $*"; failures=$((failures + 1)); }
window() { timeout 60 xdotool search --sync --onlyvisible --name "^$1\$" | head -1; }

# run NAME TITLE ACTION STATUS FILES TEXT COMMAND...: answers TITLE with ACTION (a key or sigint);
# vxdicom must end with STATUS (!0: not 0), FILES files in $work/NAME and TEXT (grep) in its output.
run() {
    local name="$1" title="$2" action="$3" want="$4" files="$5" text="$6" w status=0 written
    shift 6
    mkdir -p "$work/$name"
    timeout 120 "$vxdicom" "$@" -o "$work/$name" >"$work/$name.log" 2>&1 &
    local pid=$!
    w="$(window "$title")"
    if [ -z "$w" ]; then
        fail "$name: $title was not shown within 60 s"
    elif [ "$action" = sigint ]; then
        kill -INT "$pid"
    else
        xdotool windowfocus --sync "$w" key "$action"
        [ "$name" != save ] || xdotool windowfocus --sync "$(window 'DICOM files written')" key Return
    fi
    wait "$pid" || status=$?
    written="$(ls "$work/$name" | wc -l)"
    echo "$name: exit status $status; written: $written files"
    [ "$status" -ne 124 ] || fail "$name: vxdicom did not return within 120 s"
    [ "$status" = "$want" ] || { [ "$want" = '!0' ] && [ "$status" -ne 0 ]; } || fail "$name: status $status"
    [ "$written" -eq "$files" ] || fail "$name: $written files written, not $files"
    grep -q "$text" "$work/$name.log" || fail "$name: no '$text' in: $(cat "$work/$name.log")"
}

run ok "DICOM Loader" Return 0 1 '^field "HFS" .*: 35 x 256 x 256 int16' load "$series"
[ -s "$work/ok/HFS.nii.gz" ] || fail "ok: no HFS.nii.gz"
run escape "DICOM Loader" Escape 1 0 'cancelled in the import dialog; nothing was loaded' load "$series"
run sigint "DICOM Loader" sigint '!0' 0 '' load "$series"
run save "Save as DICOM" Return 0 256 '' save-dicom "$series" --edit
run save-escape "Save as DICOM" Escape 1 0 'cancelled; nothing was written' save-dicom "$series" --edit

[ "$failures" -eq 0 ] || exit 1
echo "all runs ended as expected"
