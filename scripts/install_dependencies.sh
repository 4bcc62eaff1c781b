#!/usr/bin/env bash
# Installs what is missing from Debian's packages; says nothing when all is there.
#   install_dependencies.sh build     compiler, CMake and the libraries of node and tools
#   install_dependencies.sh browser   the same and what the live view in a browser needs
#   install_dependencies.sh test      all that and what the tests and checks need
set -euo pipefail

build_packages=(g++ cmake ninja-build libpng-dev libcli11-dev)
browser_packages=(libwebsockets-dev)
test_packages=(libgtest-dev libgmock-dev libbenchmark-dev clang clang-format clang-tidy
  libclang-rt-14-dev tshark tcpreplay iproute2 spin python3 debootstrap lintian mandoc pkg-config
  systemd nftables python3-pytest python3-numpy python3-matplotlib mypy cyclonedds-dev
  libfastrtps-dev libzstd-dev liblz4-dev chromium fonts-dejavu-core)

case "${1:-}" in
  build) packages=("${build_packages[@]}") ;;
  browser) packages=("${build_packages[@]}" "${browser_packages[@]}") ;;
  test) packages=("${build_packages[@]}" "${browser_packages[@]}" "${test_packages[@]}") ;;
  *)
    echo "usage: $0 build|browser|test" >&2
    exit 2
    ;;
esac

# Debian's own npm brings hundreds of packages and cannot be installed beside another one.
[ "$1" = build ] || command -v npm >/dev/null || packages+=(nodejs npm)

missing=()
for package in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' ||
    missing+=("$package")
done
if [ "${#missing[@]}" -gt 0 ]; then
  echo "Installing: ${missing[*]}"
  as_root=()
  [ "$(id -u)" -eq 0 ] || as_root=(sudo)
  "${as_root[@]}" apt-get update -qq
  "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi

# The checker of metrics comes with a server that would be started: its package is only unpacked.
promtool="$(dirname "$0")/../build/promtool"
if [ "$1" = test ] && [ ! -x "$promtool/usr/bin/promtool" ]; then
  echo "Unpacking: promtool, from the package prometheus"
  download="$(mktemp -d)"
  trap 'rm -rf "$download"' EXIT
  (cd "$download" && apt-get download -qq prometheus >/dev/null 2>&1) || {
    echo "The package prometheus cannot be downloaded" >&2
    exit 1
  }
  mkdir -p "$promtool"
  dpkg-deb --fsys-tarfile "$download"/prometheus_*.deb | tar -x -C "$promtool" ./usr/bin/promtool
fi
