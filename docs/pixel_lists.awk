# Reads the operation families' entry files (vexa/gen/gen_*.cpp) and writes, for the pixel-type page, one line
# per public function and pixel list it dispatches on, directly or through a helper of its own file, as C++
# calls of docs/pixel_tables.cpp:
#   family("smooth_image", "Smoothing and sharpening");  row("smoothGaussian", GaussianPixels{});  pairs<ConvertTargetsT>("convertImage");
# PUBLIC (-v) holds the names declared in the installed headers, separated by spaces; functions not among them
# (file-local helpers) get no line of their own.
BEGIN {
    n = split(PUBLIC, names, " ")
    for (i = 1; i <= n; ++i) public[names[i]] = 1
}
function flush(    i, f, k, c, h, j, item) {
    for (i = 1; i <= nfunctions; ++i) {
        f = order[i]
        if (!(f in public) || f in printed) continue
        printed[f] = 1
        delete done
        # Its own lists, then those of the file's functions it calls (two levels deep).
        todo = f
        for (k = 0; k < 3; ++k) {
            next_todo = ""
            c = split(todo, h, " ")
            for (j = 1; j <= c; ++j) {
                if (h[j] in visited_now) continue
                visited_now[h[j]] = 1
                if (h[j] in lists) {
                    split(lists[h[j]], item, " ")
                    for (m in item) if (!(item[m] in done)) { done[item[m]] = 1; emit(f, item[m]) }
                }
                if (h[j] in calls) next_todo = next_todo " " calls[h[j]]
            }
            todo = next_todo
        }
        delete visited_now
    }
    delete lists; delete calls; delete order; delete defined; nfunctions = 0
}
function emit(f, list) {
    if (list ~ /^pairs:/) printf "pairs<%s>(\"%s\");\n", substr(list, 7), f
    else printf "row(\"%s\", %s{});\n", f, list
}
FNR == 1 {
    flush()
    stem = FILENAME
    sub(/.*\/gen_/, "", stem)
    sub(/\.cpp$/, "", stem)
    # The family's title: the first sentence of its header's brief, if it has a header of its own.
    title = stem == "scaled_converters" ? "Scaled conversion (the same picture at another depth)" : stem
    header = FILENAME
    sub(/\.cpp$/, ".h", header)
    while ((getline line < header) > 0)
        if (line ~ /^\/\/\/ @brief /) {
            sub(/^\/\/\/ @brief /, "", line)
            sub(/[.(].*/, "", line)
            sub(/ +$/, "", line)
            title = line
            break
        }
    close(header)
    printf "family(\"%s\", \"%s\");\n", stem, title
    current = ""
}
/^[A-Za-z].*[A-Za-z0-9_]+\(/ && !/^namespace/ && !/^(template|using|#)/ {
    line = $0
    sub(/\(.*/, "", line)
    count = split(line, words, /[ *&:]+/)
    current = words[count]
    if (!(current in defined)) { defined[current] = 1; order[++nfunctions] = current }
    next
}
/^}/ { current = "" }
current != "" {
    line = $0
    while (match(line, /[A-Z][A-Za-z0-9]*Pixels\{\}/)) {
        lists[current] = lists[current] " " substr(line, RSTART, RLENGTH - 2)
        line = substr(line, RSTART + RLENGTH)
    }
    line = $0
    if (match(line, /convertPair<[A-Za-z0-9]+>/)) lists[current] = lists[current] " pairs:" substr(line, RSTART + 12, RLENGTH - 13)
    while (match(line, /[a-z][A-Za-z0-9_]*\(/)) {
        calls[current] = calls[current] " " substr(line, RSTART, RLENGTH - 1)
        line = substr(line, RSTART + RLENGTH)
    }
}
END { flush() }
