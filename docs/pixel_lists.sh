#!/bin/sh
# pixel_lists.sh SOURCE_ROOT OUT: the pixel lists each public function of the families dispatches on, as calls
# for pixel_tables.cpp (pixel_lists.awk reads the entry files; the installed headers say which names are public).
set -eu
root=$1
public=$(cat "$root"/vexa/gen/*.h "$root"/vexa/imp/*.h | grep -Eo '[A-Za-z0-9_]+\(' | tr -d '(' | sort -u | tr '\n' ' ')
awk -v PUBLIC="$public" -f "$root/docs/pixel_lists.awk" "$root"/vexa/gen/gen_*.cpp >"$2"
