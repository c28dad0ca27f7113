#!/usr/bin/env bash
# Kills `orvanta record` (10 s with sound) at a random moment, five times,
# recovers each temp set with `orvanta recover` and prints how much of the
# time recorded before the kill the recovered file lacks, for video and
# sound. Runs on a private Xvfb and PulseAudio daemon with the demo's scene
# and beeps. Usage: bench/kill_recover.sh BUILD_DIR [RUNS]
set -euo pipefail
bin=$(realpath "$1")/bin  # the orvanta command
runs=${2:-5}
work=$(mktemp -d)
pids=()
cleanup() {
  for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done
  wait 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT

export XDG_RUNTIME_DIR=$work/run XDG_DOCUMENTS_DIR=$work/docs TMPDIR=$work
mkdir -m 700 "$XDG_RUNTIME_DIR"
export PULSE_SERVER=unix:$XDG_RUNTIME_DIR/native
pulseaudio -n --daemonize=no --exit-idle-time=-1 --use-pid-file=no \
  -L "module-native-protocol-unix auth-anonymous=1 socket=$XDG_RUNTIME_DIR/native" \
  -L "module-null-sink sink_name=nullsink rate=48000" >/dev/null 2>&1 &
pids+=($!)
n=120
while [ -e /tmp/.X11-unix/X$n ]; do n=$((n + 1)); done
Xvfb :$n -screen 0 1280x720x24 -nolisten tcp -noreset >/dev/null 2>&1 &
pids+=($!)
export DISPLAY=:$n
for _ in $(seq 100); do pactl info >/dev/null 2>&1 && xdpyinfo >/dev/null 2>&1 && break; sleep 0.1; done
pactl set-default-sink nullsink
"$bin/orvanta" scene >/dev/null 2>&1 &
pids+=($!)
"$bin/orvanta" tone >/dev/null 2>&1 &
pids+=($!)

duration() {
  ffprobe -v error -select_streams "$2" -show_entries stream=duration -of csv=p=0 "$1"
}

# wave: the seconds of sound in the temp file, as recovered.
printf '%-4s %-8s %-8s %-8s %-8s %-11s %-11s\n' run killed video sound wave video_lost sound_lost
for run in $(seq "$runs"); do
  temp=$work/temp$run
  err=$work/err$run
  "$bin/orvanta" record --seconds 10 --system-audio --temp "$temp" "$work/never.mp4" 2>"$err" &
  rec=$!
  until grep -qs Recording "$err"; do sleep 0.01; done
  start=$(date +%s.%N)
  sleep "$(awk -v s="$RANDOM" 'BEGIN { printf "%.2f", 1 + 8 * s / 32767 }')"
  kill -9 $rec
  end=$(date +%s.%N)
  wait $rec 2>/dev/null || true
  "$bin/orvanta" recover "$temp" "$work/out$run.mp4" >/dev/null 2>&1
  video=$(duration "$work/out$run.mp4" v)
  sound=$(duration "$work/out$run.mp4" a)
  rate=$(od -An -tu4 -j28 -N4 "$temp/Speaker.wav")
  wave=$(awk -v b="$(stat -c %s "$temp/Speaker.wav")" -v r="$rate" 'BEGIN { print (b - 68) / r }')
  awk -v r="$run" -v k="$(echo "$end - $start" | bc)" -v v="$video" -v s="$sound" -v w="$wave" \
    'BEGIN { printf "%-4s %-8.3f %-8.3f %-8.3f %-8.3f %-11.3f %-11.3f\n", r, k, v, s, w, k - v, k - s }'
done
