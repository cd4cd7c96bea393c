# SPDX-License-Identifier: MIT
# Makes a page of section 3, as scdoc's input, out of a header: what it declares and says of some functions.
#
# usage: awk -v page=PAGE -f functions.awk functions.txt HEADER

function trimmed(text) {
    gsub(/^ +| +$/, "", text)
    return text
}

function plain(text) {
    gsub(/[\\_*`<>~]/, "\\\\&", text)
    if (text ~ /^[-#|:.\[\]]/) text = "\\" text
    return text
}

# What a name is listed under: without the letter of its form.
function base(name) {
    if (!(name in wanted) && name ~ /[AW]$/) return substr(name, 1, length(name) - 1)
    return name
}

function endParagraph() {
    if (paragraph != "") print (parameter ? "\t" : "") plain(paragraph) "\n"
    paragraph = ""
    parameter = 0
}

# A parameter is two blanks further in than the text, and what is said of it further still.
function printComment(comment, lines, count, i, line, name) {
    count = split(comment, lines, "\n")
    for (i = 1; i <= count; i++) {
        line = lines[i]
        if (line ~ /^  +[^ ].*[^ ]  +[^ ]/ && line !~ /^     /) {
            endParagraph()
            line = trimmed(line)
            name = substr(line, 1, match(line, /  /) - 1)
            print "*" plain(name) "*"
            paragraph = trimmed(substr(line, length(name) + 1))
            parameter = 1
        } else if (trimmed(line) == "" || (parameter && line !~ /^    /)) {
            endParagraph()
            paragraph = trimmed(line)
        } else {
            paragraph = paragraph (paragraph == "" ? "" : " ") trimmed(line)
        }
    }
    endParagraph()
}

function beginBlock() {
    if (blockNames[blocks] != "" || blockComment[blocks] != "") blocks++
}

# A declaration that has come to its end.
function declare(text, name) {
    name = text
    sub(/^__attribute__\(\([a-z]+\)\) /, "", name)
    sub(/\(.*/, "", name)
    sub(/.*[ *]/, "", name)
    if (!(base(name) in wanted)) return
    found[base(name)]
    blockNames[blocks] = blockNames[blocks] (blockNames[blocks] == "" ? "" : ", ") name
    allNames = allNames (allNames == "" ? "" : ", ") name
    synopsis = synopsis text "\n"
}

FNR == NR {
    if (split($0, field, "|") == 5 && trimmed(field[1]) == page) {
        header = trimmed(field[2])
        library = trimmed(field[3])
        title = trimmed(field[4])
        count = split(trimmed(field[5]), names, " ")
        for (i = 1; i <= count; i++) wanted[names[i]]
    }
    next
}

inComment {
    isLast = sub(/ *\*\/$/, "")
    sub(/^ \* ?/, "")
    blockComment[blocks] = blockComment[blocks] "\n" $0
    if (isLast) inComment = 0
    next
}
inRecord { if (/^}/) inRecord = 0; next }
inDeclaration {
    declaration = declaration "\n" $0
    if (/;$/) { inDeclaration = 0; declare(declaration) }
    next
}
/^$/ || /^\/\* --- / { beginBlock(); next }
/^\/\*/ {
    beginBlock()
    blockComment[blocks] = ""
    isLast = sub(/ *\*\/$/, "")
    sub(/^\/\* ?/, "")
    blockComment[blocks] = $0
    inComment = !isLast
    next
}
/^typedef.*{$/ { inRecord = 1; next }
/^typedef|^#|^}|^extern/ { next }
/^[A-Za-z_].*\(/ {
    if (/;$/) { declare($0) } else { declaration = $0; inDeclaration = 1 }
}

END {
    for (name in wanted) {
        if (!(name in found)) {
            print page ": " name " is not in the header" >"/dev/stderr"
            exit 1
        }
    }
    print page "(3)\n\n# NAME\n\n" plain(allNames) " - " title "\n"
    print "# SYNOPSIS\n\n```\n#include <tv/" header ".h>\n\n" synopsis "\ncc program.c $(pkg-config --cflags --libs " library ")\n```\n"
    print "# DESCRIPTION\n"
    for (i = 0; i <= blocks; i++) {
        if (blockNames[i] == "") continue
        if (blockComment[i] == "") {
            print page ": the header says nothing of " blockNames[i] >"/dev/stderr"
            exit 1
        }
        print "## " plain(blockNames[i]) "\n"
        printComment(blockComment[i])
    }
    print "# ERRORS\n\nWhat all functions share, and what the codes mean, stands in *" library "*(3).\n"
    print "# SEE ALSO\n\n*" library "*(3)"
}
