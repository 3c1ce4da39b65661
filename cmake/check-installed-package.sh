#!/usr/bin/env bash
# Installs the built tree into a temporary prefix, then builds the example clients against it through
# find_package(Vexa) and runs their tests, and builds and runs the tour (main.cpp) once more through pkg-config.
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
# Each example program runs as a test of its own, its output checked (examples/CMakeLists.txt).
ctest --test-dir "$work/example" --output-on-failure

# The manual pages, where the build wrote them (with help2man), as `man` finds them under the prefix.
if [ -f "$build/tools/vexa/man/man1/vexa.1" ] && command -v man >/dev/null; then
    for page in vexa vexa-focus-stack; do
        MANPATH="$work/prefix/share/man" MANWIDTH=100 man "$page" 2>/dev/null | grep -q "focus-stack" ||
            { echo "installed package: man $page shows nothing" >&2; exit 1; }
    done
fi

pcdir=$(dirname "$(find "$work/prefix" -name vexa.pc | head -n 1)")
# shellcheck disable=SC2046
c++ -std=c++17 -fPIC "$src/examples/main.cpp" -o "$work/example_pc" $(PKG_CONFIG_PATH="$pcdir" pkg-config --cflags --libs vexa)
"$work/example_pc" "$work/out_pc" >/dev/null
echo "installed package: find_package clients built and their tests passed, pkg-config client built and ran, man pages found"
