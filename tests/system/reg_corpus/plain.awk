# SPDX-License-Identifier: MIT
# Writes .reg text as hivexregedit wants it, which takes less than Win32 does: no blanks before a line, an empty line
# before each key and nowhere else, and no key whose parents have not been named.
{
    sub(/\r$/, "")
    sub(/^[ \t]+/, "")
}
/^\[[^-]/ {
    path = substr($0, 2, length($0) - 2)
    count = split(path, names, /\\/)
    above = names[1]
    for (i = 2; i <= count; ++i) {
        if (!(tolower(above) in named)) printf "\n[%s]\n", above
        named[tolower(above)] = 1
        above = above "\\" names[i]
    }
    named[tolower(path)] = 1
    printf "\n"
}
NF { print }
