#!/usr/bin/env bash
# The change-driven capture against ffmpeg's x11grab + libx264 ultrafast on a
# 1920x1080 Xvfb at 30 fps: a still desktop, a 200 x 200 animation on a still
# desktop, and with a compositing manager running (where the engine composes
# the picture so that it can leave windows out) the still desktop and the
# animation half covered by a window that the recording leaves out, so that
# every frame composes that window's area anew. Each pair
# runs back to back in the same run; the figures are CPU seconds (user+sys of
# the whole process) and the ratio Orvanta/ffmpeg, with the stream that the
# engine chose and the machine's load.
# Usage: bench/damage_bench.sh BUILD_DIR   (configured with -DORVANTA_BENCH=ON)
set -euo pipefail
build=$(realpath "${1:-build-bench}")
bin=$build/lib
seconds=${SECONDS_PER_RUN:-20}
work=$(mktemp -d)
pids=()
cleanup() {
  for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done
  wait 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT

n=170
while [ -e /tmp/.X11-unix/X$n ] || [ -e /tmp/.X$n-lock ]; do n=$((n + 1)); done
Xvfb :$n -screen 0 1920x1080x24 -nolisten tcp -noreset >/dev/null 2>&1 &
pids+=($!)
export DISPLAY=:$n
for _ in $(seq 100); do xdpyinfo >/dev/null 2>&1 && break; sleep 0.1; done
export XDG_DOCUMENTS_DIR=$work/docs
log="$XDG_DOCUMENTS_DIR/Log Files/Orvanta0.log"
xsetroot -solid '#336699'

cpu_of() { awk '{printf "%.2f", $1 + $2}' "$1"; }

run_ffmpeg() {
  /usr/bin/time -o "$work/time" -f '%U %S' ffmpeg -v error -y -f x11grab -framerate 30 \
    -video_size 1920x1080 -i "$DISPLAY" -t "$seconds" -c:v libx264 -preset ultrafast \
    -pix_fmt yuv420p "$work/ffmpeg.mp4"
  cpu_of "$work/time"
}

run_orvanta() {
  rm -rf "$work/temp" "$XDG_DOCUMENTS_DIR"
  /usr/bin/time -o "$work/time" -f '%U %S' "$bin/record_host" "$seconds" 30 "$work/temp" >/dev/null
  stream=$(grep -o 'Use [A-Za-z ]*capture\|Use Desktop duplication' "$log" | tail -1 | tr ' ' _)
  echo "$(cpu_of "$work/time") ${stream:-?}"
}

printf "%-10s %10s %10s %7s  %s\n" scene "ffmpeg s" "orvanta s" ratio stream
xcompmgr_pid=
for scene in still box composed excluded; do
  extra=
  unset RECORD_EXCLUDE_WINDOW
  case $scene in
    box) "$bin/box_scene" & extra=$! ;;
    composed) xcompmgr >/dev/null 2>&1 & xcompmgr_pid=$! && pids+=($!) ;;
    excluded)
      "$bin/box_scene" window >"$work/window" & extra=$!
      sleep 0.5
      export RECORD_EXCLUDE_WINDOW=$(cat "$work/window") ;;
  esac
  [ -n "$extra" ] && pids+=($extra)
  sleep 1
  f_cpu=$(run_ffmpeg)
  read -r o_cpu stream < <(run_orvanta)
  printf "%-10s %10s %10s %7s  %s\n" $scene "$f_cpu" "$o_cpu" \
    "$(awk -v o="$o_cpu" -v f="$f_cpu" 'BEGIN{printf "%.3f", o/f}')" "$stream"
  [ -n "$extra" ] && kill "$extra" && wait "$extra" 2>/dev/null || true
done
[ -n "$xcompmgr_pid" ] && kill "$xcompmgr_pid"
echo "load: $(uptime)"
