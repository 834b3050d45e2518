#!/usr/bin/env bash
# run.sh BUILD_DIR: installs BUILD_DIR into a folder of its own, builds the consumer project against it with
# find_package and a small program with pkg-config, and runs both and the installed programs.
set -euo pipefail
unset VOX_RESOURCES  # the tables must be those of the installed library
build=$(readlink -f "$1")
here=$(dirname "$(readlink -f "$0")")
work=$(mktemp -d)
running=()
trap 'kill "${running[@]}" 2>/dev/null || true; rm -rf "$work"' EXIT
cmake --install "$build" --prefix "$work/prefix" >"$work/install.log"
cmake -G Ninja -S "$here" -B "$work/build" -DCMAKE_PREFIX_PATH="$work/prefix" >"$work/configure.log"
cmake --build "$work/build" >"$work/build.log" || { cat "$work/build.log"; exit 1; }
"$work/build/consumer"

for program in vox voxjobd voxsim; do "$work/prefix/bin/$program" --version >/dev/null; done
"$work/prefix/bin/vox" scan --virtual --resolution 75 -o "$work/page.png"
[ -s "$work/page.png" ]

export VOX_ROOT=$work/root XDG_CONFIG_HOME=$work/root
mkdir -p "$work/root/var/lib/Veltronix Vox" "$work/root/var/tmp"

# start PROGRAM [OPTION]...: starts an installed program; its first line is $line then, "port KEY" a number from JSON in it.
start() {
  rm -f "$work/ready"
  mkfifo "$work/ready"
  "$work/prefix/bin/$1" "${@:2}" >"$work/ready" &
  running+=($!)
  read -r line <"$work/ready"
}
port() { [[ $line =~ \"$1\":([0-9]+) ]] && echo "${BASH_REMATCH[1]}"; }

# One example finds a virtual device and remembers it.
start voxjobd --device-port 0
start voxsim --address 127.0.0.1 --name Office --device-port "${line#device port }"
"$work/build/devices" 127.0.0.1 "$(port snmpPort)" >"$work/said"
grep -q '^found Office at 127.0.0.1$' "$work/said"
grep -q 'Office (127.0.0.1), Veltronix .*, supported, online$' "$work/said"
grep -q 'usual paper is' "$work/said"

# The other one reads a page, through that job server.
"$work/build/scan" 127.0.0.1 "$(port snmpPort)" "$(port commandPort)" >"$work/page.pgm"
[ "$(head -3 "$work/page.pgm" | tr '\n' ' ')" = "P5 600 900 255 " ]
[ "$(wc -c <"$work/page.pgm")" = $((15 + 600 * 900)) ]
[ "$(tail -n +4 "$work/page.pgm" | od -An -v -tu1 -w1 | sort -u | wc -l)" -gt 1 ]  # which is not all white

libdir=$(dirname "$(find "$work/prefix" -name vox.pc)")/..
flags=$(PKG_CONFIG_PATH="$libdir/pkgconfig" pkg-config --define-variable=prefix="$work/prefix" --cflags --libs vox)
# shellcheck disable=SC2086  # the flags are words
g++ -std=c++20 "$here/main.cpp" -o "$work/plain" $flags
LD_LIBRARY_PATH="$libdir" "$work/plain"
