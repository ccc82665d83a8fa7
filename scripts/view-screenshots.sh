#!/usr/bin/env bash
# Pictures of the viewer window (`vxdicom view`) on real series of
# ../shared/data, taken without a display: each run opens the series as a
# user does (DICOM read on the worker thread), shows what the options ask for
# and saves QWidget::grab() of the window.
#   scripts/view-screenshots.sh [OUTDIR] [VXDICOM_BINARY]
# OUTDIR defaults to doc/screenshots, the binary to build/apps/vxdicom/vxdicom.
#   view-ct.png           Philips head phantom CT, gantry tilted 18.5 degrees:
#                         drawn in its own (tilted) planes, edge letters AS/PI,
#                         SP/IA; the cross-hair on an insert (about 94 HU)
#   view-oblique-mr.png   Siemens coronal EPI (mosaic) tilted 8.8 degrees, with
#                         the full-range window (its own saturates the brain)
#   view-4d-fmri.png      Philips fMRI, 3 volumes of 9 oblique slices loaded as
#                         one time series, shown at step 2 of 3
#   view-sagittal-t1.png  Siemens sagittal T1 (head first, decubitus right) with
#                         the full-range window
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
out="${1:-$here/doc/screenshots}"
vxdicom="${2:-$here/build/apps/vxdicom/vxdicom}"
data="$here/../shared/data"
[ -x "$vxdicom" ] || { echo "view-screenshots: build first (bash scripts/build.sh)" >&2; exit 2; }
[ -d "$data" ] || { echo "view-screenshots: ../shared/data is not beside the checkout" >&2; exit 2; }
mkdir -p "$out"

# Offscreen, with a private runtime folder and preferences (the default
# stack-break criteria), whatever the caller's session holds.
tmp="$(mktemp -d)"
trap 'rm -rf "$tmp"' EXIT
export QT_QPA_PLATFORM=offscreen XDG_RUNTIME_DIR="$tmp" VXDICOM_SETTINGS_FILE="$tmp/vxdicom.ini"

run() {
    echo "+ vxdicom view $*" >&2
    "$vxdicom" view --size 1500x950 "$@" >"$tmp/view.log" 2>&1 || {
        cat "$tmp/view.log" >&2
        exit 1
    }
}

# The pictures go into the repository: 256 colours (the slices are grey)
# make them a third of the size, when ImageMagick is there.
shrink() {
    if command -v convert >/dev/null; then
        for png in "$@"; do
            convert "$png" +dither -colors 256 "PNG8:$tmp/small.png" && mv "$tmp/small.png" "$png"
        done
    fi
}

run --cursor 207,214,27 --screenshot "$out/view-ct.png" "$data/dcm_qa_ct/In/Philips"
run --preset "Full range" --cursor 32,22,17 --screenshot "$out/view-oblique-mr.png" \
    "$data/dcm_qa/In/Orientation/cor/corasc35/MR.1.3.12.2.1107.5.2.32.35131.2014031012570555283988916"
run --time-series --step 1 --cursor 30,34,4 --screenshot "$out/view-4d-fmri.png" \
    "$data/dcm_qa_philips/In/Magdeburg_2014/fmri"
run --preset "Full range" --cursor 17,128,110 --screenshot "$out/view-sagittal-t1.png" \
    "$data/dcm_qa_decubitus/In/HFDR"
shrink "$out"/view-ct.png "$out"/view-oblique-mr.png "$out"/view-4d-fmri.png "$out"/view-sagittal-t1.png
echo "view-screenshots: pictures in $out" >&2
