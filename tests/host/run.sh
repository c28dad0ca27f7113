#!/usr/bin/env bash
# Installs the engine into a scratch prefix and builds a host against it the
# way application developers do, once with pkg-config and once with
# find_package(Orvanta); each records two seconds with sound and assembles
# an MP4.
# Usage: run.sh BUILD_DIR SOURCE_DIR [EXTRA_CXXFLAGS]
set -euo pipefail
build=$1
here=$2
flags=${3:-}
work=$(mktemp -d)
pids=()
cleanup() {
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null; wait "$pid" 2>/dev/null; done
  rm -rf "$work"
}
trap cleanup EXIT
prefix=$work/prefix

cmake --install "$build" --prefix "$prefix" >/dev/null
lib=$(dirname "$(find "$prefix" -name 'liborvanta.so' | head -1)")
# The prefix's library folder holds the engine and the hosts' build files;
# its helpers live in its private folder.
strays=$(find "$lib" -mindepth 1 -maxdepth 1 ! -name 'liborvanta.so*' ! -name orvanta \
         ! -name pkgconfig ! -name cmake)
[ -z "$strays" ] || { echo "files of ours in $lib: $strays"; exit 1; }
for helper in orvanta/mux orvanta/libIntelCodec.so orvanta/libGifCodec.so \
              orvanta/Resource/Images/Mouse-Left-Click.png \
              orvanta/Resource/Cursors/splitv.cur; do
  [ -e "$lib/$helper" ] || { echo "missing $lib/$helper"; exit 1; }
done
[ -e "$prefix/share/man/man1/orvanta.1.gz" ] || { echo "no manual page"; exit 1; }

# (the symbol list is read once: grep -q would cut nm's pipe short)
exported=$(nm -D --defined-only "$lib/liborvanta.so")
for symbol in ovInitialize ovUninitialize ovVideoRecord GetCapturedFile FreeCapturedFile \
              DeleteFolder GetDiskFreeBytes WriteLog LogFile FFMux GIFMux \
              RecoverCapturedFile SetScreenCropBox SetDashValue SetResourceFilePath \
              ovAudioRecord CreateVolumeMeasureObject CreateSpectrogramObject; do
  grep -qE " T $symbol\$" <<<"$exported" || { echo "not exported unmangled: $symbol"; exit 1; }
done

export PKG_CONFIG_PATH=$lib/pkgconfig
g++ -std=c++20 -Wall -Wextra -Werror $flags "$here/host.cpp" -o "$work/host-pc" \
    $(pkg-config --cflags --libs orvanta)
cmake -S "$here/cmake" -B "$work/host-cmake" -DCMAKE_PREFIX_PATH="$prefix" \
      -DHOST_SOURCE="$here/host.cpp" -DCMAKE_CXX_FLAGS="-Wall -Wextra -Werror $flags" >/dev/null
cmake --build "$work/host-cmake" >/dev/null

# A private display and sound server, as a user's session has them; both are
# ended by their pids.
exec {ready}<> <(:)
Xvfb -displayfd "$ready" -screen 0 640x360x24 -nolisten tcp -noreset >/dev/null 2>&1 &
pids+=($!)
read -r -t 20 -u "$ready" number || { echo "Xvfb did not start"; exit 1; }
export DISPLAY=:$number
export XDG_RUNTIME_DIR=$work/run
mkdir -m 700 "$XDG_RUNTIME_DIR"
export PULSE_SERVER=unix:$XDG_RUNTIME_DIR/native
pulseaudio -n --daemonize=no --exit-idle-time=-1 --use-pid-file=no --disable-shm=yes \
  -L "module-native-protocol-unix auth-anonymous=1 socket=$XDG_RUNTIME_DIR/native" \
  -L "module-null-sink sink_name=nullsink rate=48000" >/dev/null 2>&1 &
pids+=($!)
for _ in $(seq 100); do pactl info >/dev/null 2>&1 && break; sleep 0.1; done

for host in host-pc host-cmake/host; do
  export XDG_DOCUMENTS_DIR=$work/docs-${host%%/*}
  "$work/$host" "$work/temp-${host%%/*}" "$work/${host%%/*}.mp4"
  log="$XDG_DOCUMENTS_DIR/Log Files/Orvanta0.log"
  grep -q "host done" "$log" || { echo "$host: the host's own line is not in the engine's log"; exit 1; }
  if grep -q "Object not free" "$log"; then echo "$host: leak reported"; exit 1; fi
  streams=$(ffprobe -v error -show_entries stream=codec_name -of csv=p=0 "$work/${host%%/*}.mp4" | sort | tr '\n' ' ')
  [ "$streams" = "aac h264 " ] || { echo "$host: streams of the MP4: $streams"; exit 1; }
done
echo "host test: ok"
