#!/usr/bin/env bash
# Loads the real node with the simulated sensor, once at a rate that it should carry without loss
# and once at twice that, and accounts for every packet:
#   sent = received by the node + dropped by its socket, published = read from the ring + lost there.
# Exit status 0 when the sums are right, the node's memory stayed flat, everything came in order and,
# at the lower rate, nothing was lost; 77 when this machine permits no network of its own.
#   soak.sh            finds the highest rate without loss by trying, then 10 minutes at each rate
#   soak.sh --short    the same with few, short trials and 10 s at each rate: about a minute. Drops
#                      of the socket are printed but no fault: a busy machine drops at any rate
#   soak.sh --rate N --seconds S   N frames per second and 2 N, S seconds each, without trials
# Everything runs in a network, mounts and a /dev/shm of its own. KERUL_BUILD names the build
# directory, build/release by default.
set -euo pipefail

seconds=600
trial_seconds=20
rate=""
short=""
while [ $# -gt 0 ]; do
  case "$1" in
    --short)
      short=yes
      seconds=10
      trial_seconds=2
      ;;
    --rate | --seconds)
      [ $# -ge 2 ] && [[ "$2" =~ ^[1-9][0-9]{0,8}$ ]] || {
        echo "$1 needs a whole number from 1 to 999999999" >&2
        exit 2
      }
      if [ "$1" = --rate ]; then rate="$2"; else seconds="$2"; fi
      shift
      ;;
    *)
      sed -n '2,13s/^# \{0,1\}//p' "$0"
      [ "$1" = --help ] || [ "$1" = -h ] || exit 2
      exit 0
      ;;
  esac
  shift
done
cd "$(dirname "$0")/.."
build="$(realpath "${KERUL_BUILD:-build/release}")"

if [ -z "${KERUL_SOAK_INSIDE:-}" ]; then
  cmake --build "$build" -j "$(nproc)" --target lidar_node sensor_simulator soak_watch >/dev/null
  # Root needs no user namespace, which not every kernel offers.
  isolate=(unshare --net --mount)
  "${isolate[@]}" true 2>/dev/null || isolate=(unshare --user --map-root-user --net --mount)
  if ! why="$("${isolate[@]}" sh -c 'ip link set lo up && mount -t tmpfs tmpfs /dev/shm' 2>&1)"; then
    echo "Skipped: a network and a /dev/shm of its own are not permitted here: $why" >&2
    exit 77
  fi
  export KERUL_SOAK_INSIDE=yes KERUL_BUILD="$build"
  arguments=(--seconds "$seconds")
  [ -z "$rate" ] || arguments+=(--rate "$rate")
  [ -z "$short" ] || arguments=(--short "${arguments[@]}")
  exec "${isolate[@]}" -- "$0" "${arguments[@]}"
fi

# --- Inside: nobody else's packets, nobody else's ring ---

ip link set lo up
mount -t tmpfs tmpfs /dev/shm
work="$(mktemp -d)"
node=""
watch=""
node_status=0
stop_node() {
  [ -n "$node" ] || return 0
  kill -INT "$node" 2>/dev/null || true
  node_status=0
  wait "$node" || node_status=$?
  node=""
}
stop_watch() {
  [ -n "$watch" ] || return 0
  kill -INT "$watch" 2>/dev/null || true
  wait "$watch" || true
  watch=""
}
trap 'stop_node; stop_watch; rm -rf "$work"' EXIT

(cd "$work" && "$build/tools/sensor_simulator" --calibration calibration --frames 1 \
  --capture first.pcap --quiet >/dev/null)
calibration="$(echo "$work"/calibration/*)"

# The socket's dropped datagrams, by its port in hexadecimal: 2368.
drops() { awk '$2 ~ /:0940$/ { print $NF }' /proc/net/udp; }
# The node's own memory. The ring's pages are shared ones that fill up as it is first written through.
rss_kb() { awk '/^RssAnon/ { print $2 }' "/proc/$node/status"; }
value() { sed -n "s/^$1=//p" "$work/watch"; }

# Waits for what must come, far longer than a slow machine needs; false when it does not.
wait_for() {
  local tries
  for ((tries = 0; tries < 100; tries++)); do
    "$@" && return
    sleep 0.2
  done
  return 1
}
node_runs() {
  kill -0 "$node" 2>/dev/null && return
  echo "The node ended by itself:" >&2
  tail -n 20 "$work/node" >&2
  exit 1
}
node_listens() { node_runs && [ -n "$(drops)" ]; }
watch_listens() { grep -q kerul_lidar_udp_shm "/proc/$watch/maps" 2>/dev/null; }

fail() {
  echo "$*" >&2
  exit 1
}

# Sums over all streams to this node.
sent=0
send() {
  "$build/tools/sensor_simulator" --loop 10 --quiet --first-frame "$next_frame" "$@" >"$work/stream"
}
count_sent() {
  local frames datagrams
  frames="$(sed -n 's/^\([0-9]*\) frames.*/\1/p' "$work/stream")"
  datagrams="$(sed -n 's/.* frames, \([0-9]*\) datagrams.*/\1/p' "$work/stream")"
  next_frame=$((next_frame + frames))
  sent=$((sent + datagrams))
}
count_received() {
  received="$(sed -n 's/.*received_count:\([0-9]*\).*/\1/p' "$work/node" |
    awk '{ n += $1 } END { print n + 0 }')"
  dropped="$(drops)"
}
all_arrived() {
  count_received
  [ "$sent" -eq $((received + dropped)) ]
}
# Frames so slow that hardly a machine loses any of them.
send_slowly() {
  send --rate 2 --frames "$1"
  count_sent
}

# run RATE SECONDS: one node from start to end. Leaves the figures in the variables below.
run() {
  rm -f /dev/shm/*
  : >"$work/node"
  sent=0
  next_frame=0
  (cd "$work" && exec "$build/lidar_node" --cali_path "$calibration") >"$work/node" 2>&1 &
  node=$!
  wait_for node_listens || fail "the node does not listen"
  "$build/tools/soak_watch" >"$work/watch" &
  watch=$!
  wait_for watch_listens || fail "the reader does not find the ring"
  # The node has all its memory once it has seen both of its frames and every row.
  send_slowly 4
  stream_frames="$next_frame"
  send --rate "$1" --seconds "$2" &
  local stream=$!
  : >"$work/rss"
  while kill -0 "$stream" 2>/dev/null; do
    sleep 1
    node_runs
    rss_kb >>"$work/rss"
  done
  wait "$stream"
  count_sent
  stream_frames=$((next_frame - stream_frames))
  took="$(sed -n 's/.* MB in \([0-9.]*\) s/\1/p' "$work/stream")"
  # A frame is counted when it closes, which a lost last packet leaves to the next frame.
  local try
  for try in 1 2 3; do
    send_slowly 2
    wait_for all_arrived && break
  done
  stop_node
  written="$(od -An -tu4 -j4 -N4 /dev/shm/kerul_lidar_udp_shm | tr -d ' ')"
  stop_watch
  closed="$(grep -c 'received_count' "$work/node")"
  # The first tenth fills buffers and pages in.
  rss_first="$(awk '{ v[NR] = $1 } END { print v[int(NR / 10) + 1] }' "$work/rss")"
  rss_last="$(tail -n 1 "$work/rss")"
  rss_max="$(sort -n "$work/rss" | tail -n 1)"
}

report() {
  local reached
  reached="$(awk -v n="$stream_frames" -v t="$took" 'BEGIN { printf "%.1f", n / t }')"
  echo "  asked for $1 frames/s over $2 s; sent $stream_frames frames in $took s, $reached frames/s"
  echo "  sent      $sent raw packets, the slow frames before and after included"
  echo "  received  $received by the node, $dropped dropped by its socket"
  echo "  closed    $closed frames"
  echo "  published $written packets; read $(value accepted), lost in the ring $(value lost)"
  echo "  order     $(value frames) frames read, $(value frames_backwards) backwards;" \
    "$(value packets_backwards) packets backwards, $(value torn) torn, $(value refused) refused"
  echo "  memory    $rss_first KB after a tenth of the time, $rss_last KB at the end, $rss_max KB at most"
}

faults=0
require() {
  local what="$1"
  shift
  "$@" && return
  echo "  FAULT: $what"
  faults=$((faults + 1))
}

# 1 MB is far below one frame's records, so a leaked frame would show.
check() {
  require "sent is received and dropped" [ "$sent" -eq $((received + dropped)) ]
  require "published is read and lost" [ "$written" -eq $(($(value accepted) + $(value lost))) ]
  require "frames in order" [ "$(value frames_backwards)" -eq 0 ]
  require "packets in order" [ "$(value packets_backwards)" -eq 0 ]
  require "no torn or foreign packet" [ $(($(value torn) + $(value refused))) -eq 0 ]
  require "the node's end after an interrupt" [ "$node_status" -eq 0 ]
  require "memory flat" [ "$rss_max" -le $((rss_first + 1024)) ]
}

# --- The highest rate without loss ---

echo "$(nproc) processors, $(sed -n 's/^model name.*: //p' /proc/cpuinfo | head -n 1)," \
  "load $(cut -d' ' -f1 /proc/loadavg), largest socket buffer $(cat /proc/sys/net/core/rmem_max 2>/dev/null || echo unknown)"
carries() {
  run "$1" "$trial_seconds"
  local late
  late="$(awk -v n="$stream_frames" -v t="$took" -v r="$1" 'BEGIN { print (n / t < 0.97 * r) }')"
  echo "  $1 frames/s: $dropped of $sent dropped$([ "$late" = 0 ] || echo ", and sent too slowly")"
  [ "$dropped" -eq 0 ] && [ "$late" = 0 ]
}
if [ -z "$rate" ]; then
  echo "Trials of $trial_seconds s:"
  low=0
  high=5
  while [ "$high" -le 640 ] && carries "$high"; do
    low="$high"
    high=$((high * 2))
  done
  [ "$trial_seconds" -gt 2 ] || high="$low"  # not finer than by halves
  for _ in 1 2; do
    middle=$(((low + high) / 2))
    [ "$low" -gt 0 ] && [ "$middle" -gt "$low" ] || break
    if carries "$middle"; then low="$middle"; else high="$middle"; fi
  done
  [ "$low" -gt 0 ] || low=2
  # A long run meets more than a trial does: so nine tenths of what the trials carried.
  rate=$(((low * 9 + 9) / 10))
fi

# A long run may drop packets where no trial did: then a third less, twice at most.
for try in 1 2 3; do
  echo "At $rate frames/s:"
  run "$rate" "$seconds"
  report "$rate" "$seconds"
  [ "$dropped" -eq 0 ] || [ "$try" -eq 3 ] || [ "$rate" -lt 3 ] && break
  rate=$((rate * 2 / 3))
done
check
require "nothing lost in the ring" [ "$(value lost)" -eq 0 ]
if [ "$dropped" -eq 0 ]; then
  require "every frame whole" [ "$written" -eq $((next_frame * 1728)) ]
elif [ -n "$short" ]; then
  echo "  The machine is too busy for $rate frames/s without loss: no judgement of that."
else
  require "nothing dropped" false
fi

echo "At $((2 * rate)) frames/s:"
run "$((2 * rate))" "$seconds"
report "$((2 * rate))" "$seconds"
check

[ "$faults" -eq 0 ] || exit 1
echo "Every packet is accounted for."
