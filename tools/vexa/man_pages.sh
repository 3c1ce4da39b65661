#!/bin/sh
# Writes the tool's manual pages from its own help text, so that they say what the tool says:
#   man_pages.sh VEXA VERSION OUT_DIR
# vexa.1 from `vexa --help`, and vexa-COMMAND.1 from `vexa COMMAND --help` for every command that help lists.
set -eu
vexa=$1
version=$2
out=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$out"
rm -f "$out"/vexa*.1

commands=$("$vexa" --help | awk '/^Commands:/ { on = 1; next } on && /^$/ { exit } on { print $1 }')
[ -n "$commands" ] || { echo "man_pages.sh: $vexa --help lists no commands" >&2; exit 1; }

{
    echo "[SEE ALSO]"
    for c in $commands; do printf '.BR vexa-%s (1)\n' "$c"; done
} >"$work/see-also"
help2man --no-info --section 1 --manual "Vexa" --version-string "$version" \
    --name "the Vexa image library's command-line tool" --include "$work/see-also" \
    --output "$out/vexa.1" "$vexa"

for c in $commands; do
    # help2man runs the program it is given; a command is a program of its own here.
    printf '#!/bin/sh\nexec "%s" %s "$@"\n' "$vexa" "$c" >"$work/vexa-$c"
    chmod +x "$work/vexa-$c"
    name=$("$vexa" --help | awk -v c="$c" '$1 == c { $1 = ""; sub(/^ +/, ""); print; exit }')
    printf '[SEE ALSO]\n.BR vexa (1)\n' >"$work/see-also-$c"
    help2man --no-info --section 1 --manual "Vexa" --version-string "$version" --name "$name" \
        --include "$work/see-also-$c" --output "$out/vexa-$c.1" "$work/vexa-$c"
done
