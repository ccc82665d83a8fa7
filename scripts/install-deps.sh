#!/usr/bin/env bash
# Installs the Debian 12 packages that building, running and testing vxdicom need.
# Only packages that are missing are installed; nothing happens when all are present.
set -euo pipefail

packages=(
    build-essential cmake pkg-config ninja-build
    clang libclang-rt-14-dev
    qt6-base-dev libgl-dev
    libdcmtk-dev dcmtk
    libopenjp2-7-dev
    libarchive-dev ncompress tcl
    libnifti2-dev zlib1g-dev
    libdeflate-dev pigz nifti-bin libteem-dev
    libcoin-dev
    libgtest-dev
    dcm2niix libgdcm-tools teem-apps dicom3tools
    python3 python3-pydicom python3-nibabel python3-numpy
    fonts-dejavu-core xvfb xauth xdotool
)

missing=()
for p in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$p")
    fi
done

if [ ${#missing[@]} -eq 0 ]; then
    exit 0
fi

echo "installing: ${missing[*]}"
sudo_cmd=()
if [ "$(id -u)" -ne 0 ]; then
    sudo_cmd=(sudo)
fi
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -qq
"${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
