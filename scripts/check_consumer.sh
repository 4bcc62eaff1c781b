#!/usr/bin/env bash
# Builds the README's consumers in C++ and in C, unchanged, against an installed client library: with
# find_package and with pkg-config, with gcc and with clang. Then lets all of them follow a ring through a gap, a
# silence and a restarted node, and compares what they print.
#   check_consumer.sh PREFIX    where the package is installed
set -euo pipefail
[ $# -eq 1 ] || { sed -n '2,5s/^# \{0,1\}//p' "$0" >&2; exit 2; }
prefix="$(realpath "$1")"
cd "$(dirname "$0")/.."
source_dir="$PWD"
# Longer than the second that the consumer waits at a time.
silence_seconds=1.5

work="$(mktemp -d)"
ring="kerul_consumer_$$"
pids=()
clean_up() {
  [ "${#pids[@]}" -eq 0 ] || kill "${pids[@]}" 2>/dev/null || true
  rm -rf "$work" "/dev/shm/$ring"
}
trap clean_up EXIT
fail() {
  echo "check_consumer: $*" >&2
  exit 1
}

# The first code block of a language.
block() { awk -v begin="\`\`\`$1" '$0 == begin { on = 1; next } on && /^```/ { exit } on' README.md; }
block cpp >"$work/consumer.cpp"
block cmake >"$work/CMakeLists.txt"
mkdir "$work/c"
block c >"$work/c/consumer.c"
sed 's/LANGUAGES CXX/LANGUAGES C/; s/consumer\.cpp/consumer.c/; s/kerul_lidar::client/kerul_lidar::c/' \
  "$work/CMakeLists.txt" >"$work/c/CMakeLists.txt"
for part in consumer.cpp CMakeLists.txt c/consumer.c; do
  [ "$(wc -l <"$work/$part")" -ge 5 ] || fail "no $part in the README"
done
(cd "$prefix/include/kerul_lidar" && printf '#include <kerul_lidar/%s>\n' *.h) >"$work/headers.cpp"
[ "$(wc -l <"$work/headers.cpp")" -ge 10 ] || fail "hardly a header in $prefix/include/kerul_lidar"

export PKG_CONFIG_PATH="$prefix/lib/pkgconfig"
warnings="-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror"
consumers=()
for compiler in g++ clang++; do
  # shellcheck disable=SC2086
  "$compiler" -std=c++20 $warnings -I"$prefix/include" -fsyntax-only "$work/headers.cpp" ||
    fail "the headers as $compiler sees them"
  # shellcheck disable=SC2046,SC2086
  "$compiler" -std=c++20 $warnings "$work/consumer.cpp" -o "$work/pkg_config_$compiler" \
    $(pkg-config --cflags --libs kerul-lidar-client) || fail "pkg-config and $compiler"
  cmake -S "$work" -B "$work/build_$compiler" -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_CXX_FLAGS="$warnings" >"$work/log" ||
    fail "find_package and $compiler: $(cat "$work/log")"
  cmake --build "$work/build_$compiler" >"$work/log" || fail "find_package: $(cat "$work/log")"
  consumers+=("$work/pkg_config_$compiler" "$work/build_$compiler/consumer")
done

for compiler in gcc clang; do
  for standard in c99 c11; do
    "$compiler" -std=$standard -Wall -Wextra -Wpedantic -Werror -I"$prefix/include" -fsyntax-only -x c \
      "$prefix/include/kerul_lidar/kerul_lidar.h" || fail "kerul_lidar.h as $compiler sees it in $standard"
  done
  # shellcheck disable=SC2046,SC2086
  "$compiler" -std=c11 $warnings "$work/c/consumer.c" -o "$work/c/pkg_config_$compiler" \
    $(pkg-config --cflags --libs kerul-lidar-c) -Wl,-rpath,"$prefix/lib" ||
    fail "C, pkg-config and $compiler"
  cmake -S "$work/c" -B "$work/c/build_$compiler" -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_C_COMPILER="$compiler" -DCMAKE_C_FLAGS="-std=c11 $warnings" >"$work/log" ||
    fail "C, find_package and $compiler: $(cat "$work/log")"
  cmake --build "$work/c/build_$compiler" >"$work/log" || fail "C, find_package: $(cat "$work/log")"
  consumers+=("$work/c/pkg_config_$compiler" "$work/c/build_$compiler/consumer")
done

for i in "${!consumers[@]}"; do
  "${consumers[$i]}" "$ring" >"$work/out_$i" &
  pids+=($!)
done
python3 "$source_dir/tests/consumer/feed_ring.py" "$ring" "$silence_seconds"
expected="$source_dir/tests/consumer/expected.txt"
for i in "${!consumers[@]}"; do
  for _ in $(seq 100); do
    [ "$(wc -l <"$work/out_$i")" -lt "$(wc -l <"$expected")" ] || break
    sleep 0.1
  done
  kill -0 "${pids[$i]}" 2>/dev/null || fail "${consumers[$i]} has ended"
  diff "$expected" "$work/out_$i" || fail "${consumers[$i]} saw something else"
done
echo "${#consumers[@]} consumers built from $prefix saw all $(wc -l <"$expected") frames"
