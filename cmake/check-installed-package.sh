#!/usr/bin/env bash
# Installs the built tree into a temporary prefix, then builds and runs the example client against it,
# once through find_package(Vexa) and once through pkg-config.
set -euo pipefail
src=$1
build=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/prefix" >/dev/null
generator=()
command -v ninja >/dev/null && generator=(-G Ninja)
cmake -S "$src/examples" -B "$work/example" "${generator[@]}" -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/example" >/dev/null
"$work/example/vexa_example" "$work/out"
test -s "$work/out/gray.png"
test -s "$work/out/gray.vexa"
test -s "$work/out/figures.png"
test -s "$work/out/stacked.png"

pcdir=$(dirname "$(find "$work/prefix" -name vexa.pc | head -n 1)")
# shellcheck disable=SC2046
c++ -std=c++17 -fPIC "$src/examples/main.cpp" -o "$work/example_pc" $(PKG_CONFIG_PATH="$pcdir" pkg-config --cflags --libs vexa)
"$work/example_pc" "$work/out_pc" >/dev/null
echo "installed package: find_package and pkg-config clients built and ran"
