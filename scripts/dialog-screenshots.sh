#!/usr/bin/env bash
# Screenshots of vxdicom's dialogs as a user drives them, made from the real
# program on a virtual X display. The import dialog: two series, a stack
# chosen (stack pane filled), the popup menu of an image, and its preview;
# OK then loads the chosen stack. "Save as DICOM" on the first series, with
# an attribute file that sets the patient's name and a private element; Save
# writes the files, whose lines for those elements go to save-dcmdump.txt.
# The dialogs are driven with the keyboard through xdotool.
#   scripts/dialog-screenshots.sh OUTDIR [SERIES_DIR ...]
# Needs xvfb, xdotool and imagemagick (Debian packages) and a built
# build/apps/vxdicom/vxdicom. Without SERIES_DIR the Philips CT and the
# Siemens sagittal T1 of ../shared/data are loaded.
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
out="${1:?usage: dialog-screenshots.sh OUTDIR [SERIES_DIR ...]}"
shift
series=("$@")
if [ ${#series[@]} -eq 0 ]; then
    data="$(cd "$here/../shared/data" && pwd)"
    series=("$data/dcm_qa_ct/In" "$data/dcm_qa_decubitus/In")
fi
for tool in xvfb-run xdotool import convert; do
    command -v "$tool" >/dev/null || {
        echo "dialog-screenshots: $tool is missing (apt-get install xvfb xdotool imagemagick)" >&2
        exit 2
    }
done
vxdicom="$here/build/apps/vxdicom/vxdicom"
[ -x "$vxdicom" ] || { echo "dialog-screenshots: build first (bash scripts/build.sh)" >&2; exit 2; }
mkdir -p "$out"
out="$(cd "$out" && pwd)"

if [ -z "${VX_SCREENSHOT_INNER:-}" ]; then
    export VX_SCREENSHOT_INNER=1
    exec xvfb-run -a -s "-screen 0 1280x1024x24" "$0" "$out" "${series[@]}"
fi

fields="$(mktemp -d)"
trap 'rm -rf "$fields"' EXIT
"$vxdicom" load "${series[@]}" -o "$fields" >"$out/load.log" 2>&1 &
pid=$!
dialog="$(timeout 60 xdotool search --sync --name "DICOM Loader" | head -1)"
sleep 1
eval "$(xdotool getwindowgeometry --shell "$dialog")" # X, Y, WIDTH, HEIGHT
shot() { # the dialog's part of the screen, menus and previews over it included
    import -window root -crop "${WIDTH}x${HEIGHT}+${X}+${Y}" +repage "$out/$1"
}
key() { xdotool windowfocus --sync "$1"; shift; xdotool key --delay 150 "$@"; sleep 0.6; }

shot 1-dialog-two-series.png
key "$dialog" Down Up                     # the first stack: its facts in the stack pane
shot 2-stack-pane.png
key "$dialog" Right $(printf 'Down %.0s' {1..27})   # unfold it, go to its 27th image
key "$dialog" Menu                        # the image menu
shot 3-popup-menu.png
key "$dialog" Down Down Return            # "Image Preview"
sleep 0.5
shot 4-preview.png
preview="$(xdotool search --onlyvisible --name '/I[0-9]+$' | head -1)"
key "$preview" Escape
key "$dialog" Up $(printf 'Up %.0s' {1..27})   # back to the stack row, then OK
key "$dialog" Return
status=0
wait "$pid" || status=$?
echo "vxdicom load exited with $status; saved: $(cd "$fields" && ls | tr '\n' ' ')" | tee -a "$out/load.log"

printf '%s\n' "0010,0010 PN patient name: Doe^Jane" \
    "F000,F000 LO private text: vxdicom edit test" >"$fields/attributes.txt"
"$vxdicom" save-dicom "${series[0]}" -o "$fields/dicom" --edit --attributes "$fields/attributes.txt" \
    >"$out/save.log" 2>&1 &
pid=$!
save="$(timeout 60 xdotool search --sync --onlyvisible --name '^Save as DICOM$' | head -1)"
sleep 1
eval "$(xdotool getwindowgeometry --shell "$save")"
key "$save" Tab Tab ctrl+End                # the table, its last row: the private element
shot 5-save-dialog.png
key "$save" alt+s                           # Save
report="$(timeout 60 xdotool search --sync --onlyvisible --name '^DICOM files written$' | head -1)"
shot 6-save-report.png
key "$report" Return
status=0
wait "$pid" || status=$?
first="$(ls "$fields/dicom" | head -1)"
{
    echo "\$ dcmdump $first | grep -E '(0010,0010|f000,f000)'"
    dcmdump "$fields/dicom/$first" | grep -aE '\((0010,0010|f000,f000)\)'
} >"$out/save-dcmdump.txt"
echo "vxdicom save-dicom --edit exited with $status; $(ls "$fields/dicom" | wc -l) files" |
    tee -a "$out/save.log"
