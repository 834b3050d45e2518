#!/usr/bin/env bash
# sane-module.sh MODULE: the SANE backend as a file: what it exports, what it asks of the loader, under which name.
set -euo pipefail
module=$1
fail() { echo "$module: $*"; exit 1; }

calls="cancel close control_option exit get_devices get_option_descriptor get_parameters get_select_fd init open read
set_io_mode start strstatus"
wanted=$(for call in $calls; do printf 'sane_%s\nsane_vox_%s\n' "$call" "$call"; done | LC_ALL=C sort)
exported=$(nm -D --defined-only "$module" | awk '{print $3}' | LC_ALL=C sort)
[ "$exported" = "$wanted" ] || fail "exports differ (left wanted, right there):
$(diff <(echo "$wanted") <(echo "$exported"))"

# Nothing inside calls a plain or an exported name through the loader, where another backend's may answer.
called=$(nm -D --undefined-only "$module" | grep -w 'sane_[a-z_]*' || true)
[ -z "$called" ] || fail "asks others for $called"
bound=$(readelf -rW "$module" | grep -o ' sane_[a-z_]*' || true)
[ -z "$bound" ] || fail "calls by name: $bound"

dynamic=$(readelf -dW "$module")
grep -q 'Library soname: \[libsane-vox.so.1\]' <<<"$dynamic" || fail "has another soname"
grep -q 'FLAGS_1.*NODELETE' <<<"$dynamic" || fail "may be unloaded"
grep -q 'FLAGS_1.*NOW' <<<"$dynamic" || fail "is bound late"
grep -q 'NEEDED.*libvox.so.1' <<<"$dynamic" || fail "is no client of libvox"
if grep -q 'NEEDED.*libsane.so' <<<"$dynamic"; then fail "needs libsane"; fi

# Of its own it keeps nothing that a thread's end would have to destroy.
if nm -C "$module" | grep -E '__tls_init|__cxa_thread_atexit'; then fail "has something to destroy for each thread"; fi

# It neither ends its host nor writes where its host does.
asked=$(nm -D --undefined-only "$module" | grep -wE 'exit|quick_exit|_Exit|abort|printf|puts|putchar|perror' || true)
[ -z "$asked" ] || fail "may end its host, or print: $asked"
