#!/usr/bin/env bash
# Records 20 s of a 1920x1080 Xvfb at 30 fps with ffmpeg's x11grab + libx264
# ultrafast and with Orvanta's software H.264 encoder, on a still desktop and
# with full-screen motion, and prints CPU seconds (user+sys of the whole
# process), frames per second achieved, and the ratio Orvanta/ffmpeg.
# Usage: bench/record_bench.sh BUILD_DIR   (configured with -DORVANTA_BENCH=ON)
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

n=150
while [ -e /tmp/.X11-unix/X$n ] || [ -e /tmp/.X$n-lock ]; do n=$((n + 1)); done
Xvfb :$n -screen 0 1920x1080x24 -nolisten tcp -noreset >/dev/null 2>&1 &
pids+=($!)
export DISPLAY=:$n
for _ in $(seq 100); do xdpyinfo >/dev/null 2>&1 && break; sleep 0.1; done
export XDG_DOCUMENTS_DIR=$work/docs

cpu_of() { awk '{printf "%.2f", $1 + $2}' "$1"; }

run_ffmpeg() {
  /usr/bin/time -o "$work/time" -f '%U %S' ffmpeg -v error -y -f x11grab -framerate 30 \
    -video_size 1920x1080 -i "$DISPLAY" -t "$seconds" -c:v libx264 -preset ultrafast \
    -pix_fmt yuv420p "$work/ffmpeg.mp4"
  frames=$(ffprobe -v error -count_frames -select_streams v:0 \
    -show_entries stream=nb_read_frames -of csv=p=0 "$work/ffmpeg.mp4")
  echo "$(cpu_of "$work/time") $(awk -v f="$frames" -v s="$seconds" 'BEGIN{printf "%.1f", f/s}')"
}

run_orvanta() {
  rm -rf "$work/temp"
  /usr/bin/time -o "$work/time" -f '%U %S' "$bin/record_host" "$seconds" 30 "$work/temp" >/dev/null
  rate=$(grep -o 'Frame rate: [0-9.]*' "$XDG_DOCUMENTS_DIR/Log Files/Orvanta0.log" | tail -1 | awk '{print $3}')
  echo "$(cpu_of "$work/time") ${rate:-0}"
}

printf "%-8s %-8s %10s %8s\n" scene peer "cpu s" fps
for scene in still motion; do
  if [ $scene = still ]; then
    xsetroot -solid '#336699'
  else
    "$bin/motion_scene" &
    scene_pid=$!
    pids+=($scene_pid)
    sleep 1
  fi
  read -r f_cpu f_fps < <(run_ffmpeg)
  read -r o_cpu o_fps < <(run_orvanta)
  printf "%-8s %-8s %10s %8s\n" $scene ffmpeg "$f_cpu" "$f_fps" $scene orvanta "$o_cpu" "$o_fps"
  printf "%-8s ratio orvanta/ffmpeg cpu: %s\n" $scene \
    "$(awk -v o="$o_cpu" -v f="$f_cpu" 'BEGIN{printf "%.2f", o/f}')"
  if [ $scene = motion ]; then kill "$scene_pid"; fi
done
