#!/usr/bin/env bash
# Builds the Debian packages, installs them into a fresh minimal system, runs the programs there,
# links consumers against them, removes them and looks for what was left behind. Without root or a
# mirror no minimal system can be made: then it checks the packages only and ends with status 77.
#   check_package.sh [mirror]    mirror of the minimal system, by default that of this machine
# KERUL_BUILD names a release build to pack; else there is one of its own in build/package.
set -euo pipefail
cd "$(dirname "$0")/.."
source_dir="$PWD"
package_dir="$source_dir/build/package"
build="$(realpath "${KERUL_BUILD:-$package_dir}")"

fail() {
  echo "check_package: $*" >&2
  exit 1
}
skip() {
  echo "Skipped: the package was not installed anywhere: $*" >&2
  exit 77
}
step() { printf '== %s\n' "$1"; }

for tool in dpkg-deb mandoc lintian pkg-config; do
  command -v "$tool" >/dev/null || fail "$tool is missing"
done
# The same release and the same sources as this machine has.
# shellcheck disable=SC1091
release="$(. /etc/os-release && echo "$VERSION_CODENAME")"
mirror="${1:-$(apt-get indextargets --format '$(SITE)' 'Created-By: Packages' |
  grep -v security | head -n 1)}"

work="$(mktemp -d)"
root="$work/root"
trap 'rm -rf "$work"' EXIT

step "Package"
[ -n "${KERUL_BUILD:-}" ] ||
  cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DKERUL_BUILD_TESTS=OFF >/dev/null
# With a further node, as a computer with two sensors would have it.
cmake -B "$build" -DKERUL_NODES=rear=tests/nodes/rear.cpp >/dev/null
trap 'cmake -B "$build" -DKERUL_NODES= >/dev/null; rm -rf "$work"' EXIT
cmake --build "$build" >"$work/build.log" || fail "build: $(tail -n 20 "$work/build.log")"
mkdir -p "$package_dir"
rm -f "$package_dir"/*.deb
(cd "$build" && cpack -G DEB -B "$package_dir" >"$work/cpack.log") ||
  fail "cpack: $(cat "$work/cpack.log")"
# In the order in which they are installed.
names=(libkerul-lidar-client1 kerul-lidar-node python3-kerul-lidar)
# Left out, and said so, where the build has no Cyclone DDS.
has_dds="$(find "$package_dir" -name 'kerul-lidar-dds_*.deb')"
[ -z "$has_dds" ] || names+=(kerul-lidar-dds)
[ -n "$has_dds" ] || echo "kerul-lidar-dds was not built: cyclonedds-dev is missing"
packages=()
for name in "${names[@]}"; do packages+=("$(ls "$package_dir/${name}"_*.deb)"); done
[ "$(find "$package_dir" -maxdepth 1 -name '*.deb' | wc -l)" -eq ${#names[@]} ] || fail "other packages"
for package in "${packages[@]}"; do
  echo "$(basename "$package"): $(dpkg-deb -f "$package" Depends)"
  lintian --allow-root --fail-on error "$package" || fail "lintian"
done

step "Unit and manual pages"
for package in "${packages[@]}"; do dpkg-deb -x "$package" "$work/files"; done
for page in "$work"/files/usr/share/man/man*/*.gz; do
  zcat "$page" | mandoc -Tlint -W warning || fail "manual page $page"
done
if command -v systemd-analyze >/dev/null; then
  for unit in "$work"/files/usr/lib/systemd/system/*.service; do
    checked="$work/$(basename "$unit")"
    # The program is looked up by name on the machine, where it need not be.
    sed "s|^ExecStart=|&$work/files/usr/bin/|" "$unit" >"$checked"
    verdict="$(systemd-analyze verify --man=no "$checked" 2>&1 | grep kerul || true)"
    [ -z "$verdict" ] || fail "$unit: $verdict"
    # Tenths: 1.5, beyond which a part of the sandbox has gone.
    systemd-analyze security --offline=true --threshold=15 --no-pager "$checked" \
      >"$work/exposure" 2>&1 || fail "$unit is exposed: $(tail -n 1 "$work/exposure")"
  done
  # A further node's unit has all of its own: program, ring, state.
  diff "$work/kerul-lidar-node.service" "$work/kerul-lidar-node-rear.service" >"$work/own" || true
  [ "$(grep -c '^> .*rear' "$work/own")" -eq 5 ] || fail "unit of the further node: $(cat "$work/own")"
else
  echo "the unit was not verified: systemd-analyze is missing"
fi

step "Firewall's rules"
awk '/^```nft$/ {inside = 1; next} /^```$/ {inside = 0} inside' docs/security.md >"$work/rules.nft"
grep -q 'dport 2368' "$work/rules.nft" || fail "docs/security.md has no rules"
# Debian has nft where only root looks.
nft="$(PATH="$PATH:/usr/sbin" command -v nft || true)"
if [ -n "$nft" ] && [ "$(id -u)" -eq 0 ]; then
  "$nft" -c -f "$work/rules.nft" || fail "nft refuses the rules of docs/security.md"
else
  echo "the firewall's rules were not read: needs nft and root"
fi

step "Wireshark's dissector"
if command -v tshark >/dev/null; then
  # Where this machine's tshark looks for it, and nothing else of the user's or the machine's.
  plugins="$(tshark -G folders 2>/dev/null | sed -n 's/^Global Lua Plugins:[[:space:]]*//p')"
  [ -f "$work/files$plugins/kerul_lidar/raw.lua" ] || fail "no dissector in $plugins"
  mkdir -p "$work/home/.local/lib/wireshark"
  ln -s "$work/files$plugins" "$work/home/.local/lib/wireshark/plugins"
  HOME="$work/home" tshark -G protocols >"$work/protocols" 2>"$work/tshark.log" || true
  if grep -q Lua "$work/tshark.log"; then fail "dissector: $(cat "$work/tshark.log")"; fi
  [ "$(grep -c kerul_ "$work/protocols")" -eq 3 ] || fail "the dissector's protocols are not there"
else
  echo "the dissector was not loaded: tshark is missing"
fi

step "Minimal system ($release from $mirror)"
[ "$(id -u)" -eq 0 ] || skip "needs root"
command -v debootstrap >/dev/null || skip "needs debootstrap"
debootstrap --variant=minbase "$release" "$root" "$mirror" >"$work/debootstrap.log" 2>&1 ||
  skip "debootstrap: $(tail -n 5 "$work/debootstrap.log")"
# The libraries that the package needs come first, so that they do not count as its leftovers.
cp /etc/apt/sources.list "$root/etc/apt/" 2>/dev/null || true
for package in "${packages[@]}"; do dpkg-deb -f "$package" Depends; done | tr ',' '\n' |
  sed 's/(.*//; s/|.*//; s/ //g' | sort -u | grep -vxF "$(printf '%s\n' "${names[@]}")" >"$work/depends"
inside() { chroot "$root" env DEBIAN_FRONTEND=noninteractive LC_ALL=C "$@"; }
xargs -a "$work/depends" chroot "$root" env DEBIAN_FRONTEND=noninteractive \
  apt-get install -y -qq --no-install-recommends >"$work/apt.log" 2>&1 ||
  fail "dependencies: $(tail -n 5 "$work/apt.log")"
listing() { (cd "$root" && find . -xdev \( -path ./var/lib/dpkg -o -path ./var/log -o -path ./var/cache \
  -o -path ./proc -o -path ./tmp \) -prune -o -print | sort); }
mkdir -p "$root/var/lib/private"  # systemd's, where it runs
listing >"$work/before"

step "Install and run"
cp "${packages[@]}" "$root/tmp/"
inside dpkg -i "${packages[@]/#*\///tmp/}" >"$work/dpkg.log" 2>&1 || fail "install: $(cat "$work/dpkg.log")"
for program in "$work"/files/usr/bin/*; do
  program="$(basename "$program")"
  inside "$program" --help >"$work/help" 2>&1 || fail "$program --help: $(cat "$work/help")"
  grep -q "^Usage: $program" "$work/help" || fail "$program --help: $(cat "$work/help")"
done
inside sensor_simulator --frames 1 --capture /tmp/one.pcap --calibration /tmp/calib >/dev/null ||
  fail "sensor_simulator"
# 24 bytes, then 6912 packets with their headers.
[ "$(stat -c %s "$root/tmp/one.pcap")" -eq $((24 + 6912 * (16 + 42 + 692))) ] ||
  fail "the capture of one frame has another size"
if inside lidar_node --cali_path /nowhere >"$work/refused" 2>&1; then fail "/nowhere was taken"; fi
grep -q 'invalid --cali_path' "$work/refused" || fail "lidar_node: $(cat "$work/refused")"

step "Python"
inside /usr/share/doc/python3-kerul-lidar/examples/print_frames.py /tmp/one.pcap /tmp/calib/SIM-0001 \
  >"$work/printed" 2>&1 || fail "Python: $(cat "$work/printed")"
grep -q '^frame 0: [0-9]* returns' "$work/printed" || fail "Python printed: $(cat "$work/printed")"

[ -s "$root/usr/share/kerul_lidar/page/index.html" ] || fail "lidar_web has no page"

step "Consumers"
scripts/check_consumer.sh "$root/usr" || fail "consumer"

step "Remove"
inside dpkg --remove "${names[@]}" >"$work/dpkg.log" 2>&1 || fail "remove: $(cat "$work/dpkg.log")"
mkdir -p "$root/var/lib/private/kerul-lidar-node"  # what a service would have cached
ln -s private/kerul-lidar-node "$root/var/lib/kerul-lidar-node"
inside dpkg --purge "${names[@]}" >>"$work/dpkg.log" 2>&1 || fail "purge: $(cat "$work/dpkg.log")"
listing >"$work/after"
diff "$work/before" "$work/after" || fail "something was left behind, or taken along"
if inside dpkg -s kerul-lidar-node >/dev/null 2>&1; then fail "dpkg still knows the package"; fi
echo "the package installs, runs and goes without a trace"
