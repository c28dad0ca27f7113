#!/usr/bin/env bash
# Usage: run.sh BUILD_DIR SOURCE_DIR [EXTRA_CXXFLAGS]
set -euo pipefail
build=$1
here=$2
flags=${3:-}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix

cmake --install "$build" --prefix "$prefix" >/dev/null
lib=$(ls -d "$prefix"/lib*/ | head -1)
export PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name orvanta.pc | head -1)")

# (the symbol list is read once: grep -q would cut nm's pipe short)
exported=$(nm -D --defined-only "$lib/liborvanta.so")
for symbol in ovInitialize ovUninitialize ovVideoRecord GetCapturedFile FreeCapturedFile \
              DeleteFolder GetDiskFreeBytes WriteLog LogFile RecoverCapturedFile; do
  grep -qE " T $symbol\$" <<<"$exported" || { echo "not exported unmangled: $symbol"; exit 1; }
done

g++ -std=c++20 -Wall -Wextra -Werror $flags "$here/host.cpp" -o "$work/host" \
    $(pkg-config --cflags --libs orvanta)

# The session records the system's sound: a private sound server with a null
# sink as its output, ended by its pid.
export XDG_RUNTIME_DIR=$work/run
mkdir -m 700 "$XDG_RUNTIME_DIR"
export PULSE_SERVER=unix:$XDG_RUNTIME_DIR/native
pulseaudio -n --daemonize=no --exit-idle-time=-1 --use-pid-file=no --disable-shm=yes \
  -L "module-native-protocol-unix auth-anonymous=1 socket=$XDG_RUNTIME_DIR/native" \
  -L "module-null-sink sink_name=nullsink rate=48000" >/dev/null 2>&1 &
pulse=$!
trap 'kill $pulse 2>/dev/null; wait $pulse 2>/dev/null; rm -rf "$work"' EXIT
for _ in $(seq 100); do pactl info >/dev/null 2>&1 && break; sleep 0.1; done

export XDG_DOCUMENTS_DIR=$work/docs
"$work/host" "$work/temp"
log="$work/docs/Log Files/Orvanta0.log"

# The session's lines, in this order.
expected=(
  "Video Redord ..."
  "Audio: bRender=1, bCapture=0"
  "CScreenRecoderObject Create"
  "CScreenRecoderObject Destroy"
  "Wave out duration="
  "Tick duation="
  "CScreenRecoderObject Delete"
  "Delete Captured, bDelete=1"
  "host done"
  "Gdiplus::Bitmap=0"
  "Gdiplus::Graphics=0"
)
line=0
for text in "${expected[@]}"; do
  found=$(grep -nF -- "$text" "$log" | awk -F: -v after="$line" '$1 > after {print $1; exit}')
  [ -n "$found" ] || { echo "log line missing or out of order: $text"; cat "$log"; exit 1; }
  line=$found
done
grep -q "Object not free" "$log" && { echo "leak reported"; exit 1; }
echo "host test: ok"
