#!/usr/bin/env bash
# Shows the node at work without a sensor: builds it, streams a simulated street for 10 seconds
# through the default node and its shared-memory ring into a viewer, and leaves a picture.
#   ./run_demo.sh             writes demo_out/frame.png and demo_out/frame.ply
#   ./run_demo.sh --scene S   another scene: street, retro, noise, crosstalk, targets, empty
#   ./run_demo.sh --seconds N streams so long, for programs beside it; the sensor's calibration is
#                             then in demo_out/calibration
#   ./run_demo.sh --browser   shows it live in a browser instead, until Ctrl-C
# Exit status 0 only when complete frames came through and none was incomplete or lost; with
# --browser after Ctrl-C.
set -euo pipefail
cd "$(dirname "$0")"

scene=street
seconds=10
browser=""
while [ $# -gt 0 ]; do
  case "$1" in
    --scene)
      scene="${2:?--scene needs a name}"
      shift 2
      ;;
    --seconds)
      seconds="${2:?--seconds needs a number}"
      [[ "$seconds" =~ ^[1-9][0-9]{0,5}$ ]] || { echo "--seconds needs a whole number" >&2; exit 2; }
      shift 2
      ;;
    --browser)
      browser=yes
      shift
      ;;
    -h | --help)
      sed -n '2,10s/^# \{0,1\}//p' "$0"
      exit 0
      ;;
    *)
      echo "unknown option: $1 (see --help)" >&2
      exit 2
      ;;
  esac
done

ring=/dev/shm/kerul_lidar_udp_shm
# UDP port 2368 is 0940 in hexadecimal.
if grep -qi ':0940 ' /proc/net/udp; then
  echo "Something receives on UDP port 2368, most likely a lidar_node: stop it first." >&2
  exit 1
fi

targets=(lidar_node sensor_simulator)
if [ -n "$browser" ]; then
  scripts/install_dependencies.sh browser
  targets+=(lidar_web lidar_web_page)
else
  scripts/install_dependencies.sh build
  targets+=(lidar_view kerul_lidar_c)
fi
echo "Building (the first time takes a minute)..."
cmake --preset release -DKERUL_BUILD_TESTS=OFF -DKERUL_BUILD_BENCH=OFF -B build/demo >/dev/null
# Steps are counted in one line on a terminal; elsewhere only what goes wrong is printed.
build_log="$PWD/build/demo/demo_build.log"
if ! cmake --build build/demo -j "$(nproc)" --target "${targets[@]}" | tee "$build_log" |
  sed -un 's/^\(\[[0-9]*\/[0-9]*\]\).*/\1/p' | while read -r line; do
    [ ! -t 1 ] || printf '\r%s' "$line"
  done
then
  cat "$build_log" >&2
  exit 1
fi
[ ! -t 1 ] || echo

rmem_max=$(cat /proc/sys/net/core/rmem_max 2>/dev/null || echo 0)
if [ "$rmem_max" -gt 0 ] && [ "$rmem_max" -lt 16777216 ]; then
  echo "The socket buffer limit is $rmem_max bytes, less than two frames: a busy machine loses"
  echo "packets. Raise it with: sudo sysctl -w net.core.rmem_max=134217728"
fi

bin="$PWD/build/demo"
out="$PWD/demo_out"
mkdir -p "$out"
[ -n "$browser" ] || rm -f "$out"/frame.png "$out"/frame.ply "$out"/summary.txt
work=$(mktemp -d)
node_pid=""
simulator_pid=""
web_pid=""
clean_up() {
  trap - EXIT INT TERM
  for pid in $web_pid $simulator_pid $node_pid; do kill -INT "$pid" 2>/dev/null || true; done
  for pid in $web_pid $simulator_pid $node_pid; do wait "$pid" 2>/dev/null || true; done
  rm -f "$ring"
  rm -rf "$work"
}
trap clean_up EXIT
trap 'clean_up; exit 130' INT TERM

cd "$work"
"$bin/tools/sensor_simulator" --scene "$scene" --calibration calibration --frames 1 \
  --capture first_frame.pcap --quiet >/dev/null
calibration=$(echo calibration/*)
rm -rf "$out/calibration"
cp -r calibration "$out/calibration"

"$bin/lidar_node" --cali_path "$calibration" >"$out/node.log" 2>&1 &
node_pid=$!
for _ in $(seq 100); do
  grep -q 'detect threshold load' "$out/node.log" && break
  kill -0 "$node_pid" 2>/dev/null || break
  sleep 0.1
done
if ! grep -q 'detect threshold load succssed' "$out/node.log"; then
  echo "The node did not start:" >&2
  cat "$out/node.log" >&2
  exit 1
fi

# The frames are computed ahead, so that the stream leaves the machine to the node.
duration=(--seconds $((seconds + 5)))
[ -z "$browser" ] || duration=()
"$bin/tools/sensor_simulator" --scene "$scene" --loop 20 "${duration[@]}" --quiet \
  >"$work/simulator.log" 2>&1 &
simulator_pid=$!

for _ in $(seq 300); do
  grep -q 'received_count' "$out/node.log" && break
  kill -0 "$simulator_pid" 2>/dev/null || break
  sleep 0.1
done

if [ -n "$browser" ]; then
  "$bin/tools/lidar_web" --calib "$calibration" --node-log "$out/node.log" >"$work/web.log" 2>&1 &
  web_pid=$!
  for _ in $(seq 100); do
    ! grep -q 'http://' "$work/web.log" || break
    kill -0 "$web_pid" 2>/dev/null || break
    sleep 0.1
  done
  if ! grep -q 'http://' "$work/web.log"; then
    cat "$work/web.log" >&2
    exit 1
  fi
  trap 'clean_up; echo; exit 0' INT TERM
  echo "Streaming the scene '$scene' until Ctrl-C. Open in a browser on this machine:"
  sed -n 's/.*\(http:[^ ]*\).*/  \1/p' "$work/web.log"
  wait "$web_pid" || true
  echo "lidar_web has ended:" >&2
  cat "$work/web.log" >&2
  exit 1
fi

echo "Streaming the scene '$scene' for $seconds seconds:"
status=0
"$bin/tools/lidar_view" --seconds "$seconds" --png "$out/frame.png" \
  --ply "$out/frame.ply" --summary "$out/summary.txt" --calib "$calibration" || status=$?

value() { sed -n "s/^$1=//p" "$out/summary.txt"; }
echo
if [ -s "$out/summary.txt" ]; then
  echo "frames: $(value complete) complete, $(value incomplete) incomplete, $(value missing_frames) missing"
  echo "packets: $(value packets) taken, $(value lost) lost in the ring"
  echo "node: $(grep 'received_count:6912' "$out/node.log" | tail -n 1)"
  echo "picture: demo_out/frame.png   points: demo_out/frame.ply   node's log: demo_out/node.log"
  if [ "$(value complete)" -eq 0 ] || [ "$(value incomplete)" -ne 0 ] || [ "$(value lost)" -ne 0 ]
  then
    echo "Not every frame came through complete." >&2
    [ "$status" -ne 0 ] || status=1
  fi
else
  echo "The viewer saw no frames." >&2
  [ "$status" -ne 0 ] || status=1
fi
exit "$status"
