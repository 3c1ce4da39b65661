#!/bin/sh
# Doxygen's input filter for the Markdown pages: pictures are linked as images/NAME or ../images/NAME, which
# reads right beside the files; the reference finds them in its IMAGE_PATH by their names alone.
exec sed -e 's|](\(\.\./\)*images/|](|g' "$1"
