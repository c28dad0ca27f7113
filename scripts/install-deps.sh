#!/usr/bin/env bash
# Installs what Orvanta needs to build, test and run its demo on Debian 12.
# Only packages that are missing are asked for; runs as root or through sudo.
set -euo pipefail

packages=(
  # build
  g++ cmake make pkg-config git ca-certificates clang-format dpkg-dev file
  libx11-dev libxext-dev libxfixes-dev libxcomposite-dev libxdamage-dev libxi-dev
  libxrandr-dev libxinerama-dev libxss-dev libxtst-dev libxcursor-dev libpulse-dev
  libavcodec-dev libavformat-dev libavutil-dev libswscale-dev libswresample-dev libavfilter-dev
  # software H.264 drives libx264 itself, for the per-macroblock hints that
  # FFmpeg 5.1's wrapper does not pass on (the runtime package follows from
  # the shared-library dependencies of the .deb)
  libx264-dev
  libcairo2-dev libpango1.0-dev libpng-dev libjpeg-dev libtiff-dev libgif-dev
  libv4l-dev libegl-dev libgtest-dev libgmock-dev libbenchmark-dev
  # fuzzing with libFuzzer
  clang libclang-rt-14-dev
  # run and test: a private X server, a sound server, FFmpeg's tools
  xvfb xauth x11-apps x11-utils x11-xserver-utils xdotool xcompmgr xclip
  pulseaudio pulseaudio-utils sox ffmpeg libgl1-mesa-dri libegl1 time procps
  # the same recordings on PipeWire's Pulse server, on a session bus of its own
  pipewire pipewire-pulse wireplumber dbus-daemon
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo=""
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null || { echo "install-deps: run as root to install: ${missing[*]}" >&2; exit 1; }
  sudo=sudo
fi
echo "install-deps: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
