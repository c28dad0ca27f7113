#!/usr/bin/env bash
# Orvanta's software H.264 recording beside ffmpeg's (x11grab + libx264
# ultrafast) on the same private Xvfb, scene by scene, in one run:
#   still   1920x1080 at 30 fps: a still desktop
#   motion  1920x1080 at 30 and 60 fps, 3840x2160 at 30 fps: every pixel
#           changes at every frame (a picture scrolled across the screen)
# For each recorder: CPU seconds (user + sys of the whole process), peak RSS,
# frames written per second of recording, and frames dropped (frames that the
# capture's pacing could not take: rate x seconds less frames captured).
# Orvanta records the system sound too where a private PulseAudio can be
# started (column "snd"); ffmpeg records the picture only.
# Usage: bench/record_bench.sh BUILD_DIR   (configured with -DORVANTA_BENCH=ON)
# SECONDS_PER_RUN (10) sets the length of each recording; SCENES picks rows,
# e.g. SCENES=still:1920x1080:30. A 10 s still recording is mostly the cost
# of starting up (loading FFmpeg's libraries and probing the encoders), which
# longer runs spread thinner.
set -euo pipefail
build=$(realpath "${1:-build-bench}")
bin=$build/lib
seconds=${SECONDS_PER_RUN:-10}
work=$(mktemp -d)
pids=()
xvfb_pid=
cleanup() {
  for p in "${pids[@]}" $xvfb_pid; do kill "$p" 2>/dev/null || true; done
  wait 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT

# A private sound server with a null sink, for the recordings with sound.
sound=0
if command -v pulseaudio >/dev/null; then
  export XDG_RUNTIME_DIR=$work/run
  mkdir -p "$XDG_RUNTIME_DIR" && chmod 700 "$XDG_RUNTIME_DIR"
  pulseaudio -n --daemonize=no --exit-idle-time=-1 --use-pid-file=no \
    -L "module-native-protocol-unix auth-anonymous=1 socket=$XDG_RUNTIME_DIR/pulse/native" \
    -L "module-null-sink sink_name=nullsink rate=48000" >/dev/null 2>&1 &
  pids+=($!)
  export PULSE_SERVER=unix:$XDG_RUNTIME_DIR/pulse/native
  for _ in $(seq 50); do pactl info >/dev/null 2>&1 && break; sleep 0.1; done
  pactl set-default-sink nullsink >/dev/null 2>&1 && sound=1
fi

start_xvfb() {  # SIZE
  if [ -n "$xvfb_pid" ]; then kill "$xvfb_pid"; wait "$xvfb_pid" 2>/dev/null || true; fi
  local n=150
  while [ -e /tmp/.X11-unix/X$n ] || [ -e /tmp/.X$n-lock ]; do n=$((n + 1)); done
  Xvfb :$n -screen 0 "${1}x24" -nolisten tcp -noreset >/dev/null 2>&1 &
  xvfb_pid=$!
  export DISPLAY=:$n
  for _ in $(seq 100); do xdpyinfo >/dev/null 2>&1 && break; sleep 0.1; done
}

# Prints: cpu_seconds peak_rss_mb frames_written frames_captured
run_ffmpeg() {  # SIZE FPS
  /usr/bin/time -o "$work/time" -f '%U %S %M' ffmpeg -nostdin -v error -y -f x11grab \
    -framerate "$2" -video_size "$1" -i "$DISPLAY" -t "$seconds" -c:v libx264 -preset ultrafast \
    -pix_fmt yuv420p -fps_mode passthrough "$work/ffmpeg.mp4"
  local frames
  frames=$(ffprobe -v error -count_frames -select_streams v:0 \
    -show_entries stream=nb_read_frames -of csv=p=0 "$work/ffmpeg.mp4")
  awk -v f="$frames" '{printf "%.2f %.0f %d %d\n", $1 + $2, $3 / 1024, f, f}' "$work/time"
}

run_orvanta() {  # SIZE FPS
  rm -rf "$work/temp" "$work/docs"
  XDG_DOCUMENTS_DIR=$work/docs /usr/bin/time -o "$work/time" -f '%U %S %M' \
    "$bin/record_host" "$seconds" "$2" "$work/temp" "$sound" >/dev/null
  local log written captured
  log=$(cat "$work/docs/Log Files/"Orvanta*.log)
  written=$(grep -o 'wrote [0-9]* frames' <<<"$log" | tail -1 | awk '{print $2}')
  captured=$(grep -o 'Frame count=[0-9]*' <<<"$log" | tail -1 | cut -d= -f2)
  awk -v w="${written:-0}" -v c="${captured:-0}" \
    '{printf "%.2f %.0f %d %d\n", $1 + $2, $3 / 1024, w, c}' "$work/time"
}

row() {  # SCENE SIZE FPS PEER SND CPU RSS WRITTEN CAPTURED
  awk -v sc="$1" -v sz="$2" -v fps="$3" -v peer="$4" -v snd="$5" -v cpu="$6" -v rss="$7" \
    -v w="$8" -v c="$9" -v s="$seconds" 'BEGIN {
      d = fps * s - c; if (d < 0) d = 0
      printf "%-7s %-10s %4d  %-8s %3s %8.2f %8d %10.1f %8d\n", sc, sz, fps, peer, snd, cpu, rss, w / s, d
    }'
}

echo "$(date -u '+%F %T') UTC, $seconds s per recording, load before: $(cut -d' ' -f1-3 /proc/loadavg)"
printf "%-7s %-10s %4s  %-8s %3s %8s %8s %10s %8s\n" \
  scene size fps recorder snd "CPU s" "RSS MB" "written/s" dropped
ratios=()
current=
for run in ${SCENES:-still:1920x1080:30 motion:1920x1080:30 motion:1920x1080:60 motion:3840x2160:30}; do
  IFS=: read -r scene size fps <<<"$run"
  if [ "$size" != "$current" ]; then start_xvfb "$size"; current=$size; fi
  scene_pid=
  if [ "$scene" = still ]; then
    xsetroot -solid '#336699'
  else
    "$bin/motion_scene" $((fps * 2)) &
    scene_pid=$!
    pids+=($scene_pid)
    sleep 2
  fi
  read -r f_cpu f_rss f_written f_captured < <(run_ffmpeg "$size" "$fps")
  read -r o_cpu o_rss o_written o_captured < <(run_orvanta "$size" "$fps")
  row "$scene" "$size" "$fps" ffmpeg no "$f_cpu" "$f_rss" "$f_written" "$f_captured"
  row "$scene" "$size" "$fps" orvanta "$([ $sound = 1 ] && echo yes || echo no)" \
    "$o_cpu" "$o_rss" "$o_written" "$o_captured"
  ratios+=("$(awk -v sc="$scene" -v sz="$size" -v fps="$fps" -v oc="$o_cpu" -v fc="$f_cpu" \
    -v orss="$o_rss" -v frss="$f_rss" -v on="$o_captured" -v fn="$f_captured" \
    'BEGIN {printf "%-7s %-10s %4d  CPU %.3f  CPU per frame captured %.3f  RSS %.2f", sc, sz, fps,
            oc / fc, (oc / (on ? on : 1)) / (fc / (fn ? fn : 1)), orss / frss}')")
  if [ -n "$scene_pid" ]; then kill "$scene_pid"; wait "$scene_pid" 2>/dev/null || true; fi
done
echo
echo "Orvanta / ffmpeg (CPU per frame captured evens out frames that one of them dropped):"
printf '%s\n' "${ratios[@]}"
echo "load after: $(cut -d' ' -f1-3 /proc/loadavg)"
