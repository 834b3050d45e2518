#!/usr/bin/env bash
# run.sh BUILD_DIR: installs BUILD_DIR into a folder of its own, builds the consumer project against it with
# find_package and a small program with pkg-config, and runs both and the installed programs.
set -euo pipefail
unset VOX_RESOURCES  # the tables must be those of the installed library
build=$(readlink -f "$1")
here=$(dirname "$(readlink -f "$0")")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$build" --prefix "$work/prefix" >"$work/install.log"
cmake -G Ninja -S "$here" -B "$work/build" -DCMAKE_PREFIX_PATH="$work/prefix" >"$work/configure.log"
cmake --build "$work/build" >"$work/build.log" || { cat "$work/build.log"; exit 1; }
"$work/build/consumer"

for program in vox voxjobd voxsim; do "$work/prefix/bin/$program" --version >/dev/null; done
"$work/prefix/bin/vox" scan --virtual --resolution 75 -o "$work/page.png"
[ -s "$work/page.png" ]

# The example finds a virtual device and remembers it.
mkfifo "$work/ready"
"$work/prefix/bin/voxsim" --address 127.0.0.1 --name Office >"$work/ready" &
sim=$!
read -r line <"$work/ready"
port=$(sed 's/.*"snmpPort":\([0-9]*\).*/\1/' <<<"$line")
mkdir -p "$work/root/var/lib/Veltronix Vox"
VOX_ROOT=$work/root XDG_CONFIG_HOME=$work/root "$work/build/devices" 127.0.0.1 "$port" >"$work/said"
kill "$sim"
wait "$sim" || true
grep -q '^found Office at 127.0.0.1$' "$work/said"
grep -q 'Office (127.0.0.1), Veltronix .*, supported, online$' "$work/said"
grep -q 'usual paper is' "$work/said"

libdir=$(dirname "$(find "$work/prefix" -name vox.pc)")/..
flags=$(PKG_CONFIG_PATH="$libdir/pkgconfig" pkg-config --define-variable=prefix="$work/prefix" --cflags --libs vox)
# shellcheck disable=SC2086  # the flags are words
g++ -std=c++20 "$here/main.cpp" -o "$work/plain" $flags
LD_LIBRARY_PATH="$libdir" "$work/plain"
