#!/usr/bin/env bash
# Takes the README's picture of lidar_web's page: builds what is needed, streams the simulated street
# and photographs the page in Chromium. Writes docs/images/lidar_web.png.
set -euo pipefail
cd "$(dirname "$0")/.."
picture="$PWD/docs/images/lidar_web.png"
cmake --preset release >/dev/null
cmake --build --preset release -j "$(nproc)" \
  --target lidar_node sensor_simulator lidar_web lidar_web_page_tests >/dev/null
tests="$PWD/tests/tools/lidar_web/page"
cd build/release/page
"$tests/own_network.sh" node out/picture/page_picture.mjs "$picture"
echo "$picture: $(stat -c %s "$picture") bytes"
