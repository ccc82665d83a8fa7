#!/usr/bin/env bash
# The main job on the built-in example: builds the command line and the
# example (installing what is missing; the tests are built by run-tests.sh),
# writes the phantom CT series, loads it with vxdicom into a 3D field and
# saves that field as NIfTI beside it.
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build="$here/build"
VX_BUILD_TARGETS="vxdicom example_phantom" bash "$here/scripts/build.sh" "$build"

example="$build/example/phantom-ct"
out="$build/example/phantom-ct-out"
rm -rf "$out"
# Preferences of this run stay beside the example, not in the user's settings.
export VXDICOM_SETTINGS_FILE="$build/example/vxdicom.ini"
echo "== vxdicom load -nodialog $example -o $out"
"$build/apps/vxdicom/vxdicom" load -nodialog "$example" -o "$out"
echo "== the first file, as the DICOM layer reads it"
"$build/apps/vxdicom/vxdicom" info --no-attributes "$example/IM0001.dcm"
