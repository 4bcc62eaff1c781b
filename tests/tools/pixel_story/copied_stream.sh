#!/usr/bin/env bash
# The rules of the manual page copy a sensor's stream to pixel_story, and who listens on the sensor's
# port still gets all of it. In network namespaces of its own; ends with 77 where they are not to be
# had.
#   copied_stream.sh SIMULATOR PIXEL_STORY MANUAL_PAGE
set -euo pipefail

if [ "${1:-}" != inside ]; then
  if ! unshare -rn nft list ruleset >/dev/null 2>&1; then
    echo "no network namespace with nftables here"
    exit 77
  fi
  place=$(mktemp -d)
  trap 'rm -rf "$place"' EXIT
  unshare -rn "$0" inside "$place" "$@"
  exit
fi
place=$2 simulator=$3 pixel_story=$4 page=$5
cd "$place"

# The sensor stands in a second namespace at the other end of lidar0.
ip link set lo up
ip link add lidar0 type veth peer name sensor0
unshare -n sleep 300 &
sensor=$!
stream=
trap 'kill "$sensor" $stream 2>/dev/null || true' EXIT
until [ "$(readlink "/proc/$sensor/ns/net")" != "$(readlink /proc/self/ns/net)" ]; do sleep 0.05; done
ip link set sensor0 netns "$sensor"
ip address add 192.168.10.1/24 dev lidar0
ip link set lidar0 up
beside_sensor() { nsenter -t "$sensor" -n "$@"; }
beside_sensor ip address add 192.168.10.160/24 dev sensor0
beside_sensor ip link set sensor0 up

sed -n '/^table ip lidar_copy/,/^}/p' "$page" | sed 's/\\e$/\\/' | nft -f -

# In the node's place: counts what comes for the sensor's port until two seconds without.
python3 - >received <<'P' &
import socket

receiver = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
receiver.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 1 << 25)
receiver.bind(("", 2368))
receiver.settimeout(60)
count = 0
try:
    while True:
        receiver.recv(2000)
        receiver.settimeout(2)
        count += 1
except TimeoutError:
    print(count)
P
receiver=$!
"$simulator" --no-stream --calibration "$place/data" --frames 1 >simulated 2>&1
: >progress
"$pixel_story" --live 2400 --timeout 60 --calib data/SIM-0001 --all >told 2>progress &
story=$!
until grep -q waiting progress; do sleep 0.05; done
# Without the function, so that it is the simulator that is ended.
nsenter -t "$sensor" -n "$simulator" --dest-ip 192.168.10.1 --frames 50 --rate 1 >>simulated 2>&1 &
stream=$!
wait "$story" || { cat progress; exit 1; }
kill "$stream"
wait "$receiver"
grep "add up to 124416 echoes" told
[ "$(cat received)" -ge 6912 ] || { echo "only $(cat received) packets at the sensor's port"; exit 1; }
