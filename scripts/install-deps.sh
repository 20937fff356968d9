#!/usr/bin/env bash
# Installs the Debian packages Vantalo builds, runs and tests with. Quick when all are present.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config clang-format clang-16 clang-tidy-16 libclang-rt-16-dev
  qt6-base-dev qt6-base-dev-tools qt6-qpa-plugins libqt6svg6 qtkeychain-qt6-dev qt6-httpserver-dev qt6-websockets-dev
  libgl-dev libxkbcommon-dev
  libxcb1-dev libxcb-shm0-dev libxcb-xfixes0-dev libxcb-keysyms1-dev libxcb-randr0-dev libxcb-shape0-dev libxcb-xinput-dev
  libimagequant-dev libgif-dev libpipewire-0.3-dev
  xvfb xauth x11-utils x11-xserver-utils trayer xdotool xclip xcompmgr openbox imagemagick gifsicle
  dbus dbus-x11 gnome-keyring libsecret-1-0 libsecret-tools python3 python3-gi gir1.2-gtk-3.0 python3-dbus python3-botocore python3-pil
  fonts-dejavu-core dpkg-dev desktop-file-utils appstream
  xdg-desktop-portal pipewire pipewire-bin wireplumber gstreamer1.0-pipewire gstreamer1.0-plugins-base
  gstreamer1.0-tools
  mutter xwayland xdg-desktop-portal-gnome xdg-desktop-portal-gtk weston libgl1-mesa-dri libegl-mesa0
  kwin-wayland xdg-desktop-portal-kde libkf5globalaccel-bin qtwayland5 qt6-wayland
)

# Node.js runs the S3-compatible server of the upload tests; machines often have their own.
if ! command -v npm >/dev/null; then
  packages+=(nodejs npm)
fi

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo=""
if [ "$(id -u)" -ne 0 ]; then sudo="sudo"; fi
echo "Installing: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
