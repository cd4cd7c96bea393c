# SPDX-License-Identifier: MIT
# What the dynamic linker has to do for a program that people and scripts run by the dozen.

@test "tvsc loads the library of C and that of mathematics, and no other" {
    needed=$(readelf -d "$TV_BIN/tvsc" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
    [[ $needed != *san.so* ]] || skip "a sanitizer wants the shared libraries"
    [ -e "$(c++ -print-file-name=libtirpc.a)" ] || skip "there is no libtirpc.a"
    [ "$(grep -vE '^(libc|libm|ld-linux[^.]*)\.so\.' <<<"$needed")" = "" ]
}

@test "a thread of tvsc has next to no variables of its own to clear" {
    bytes=$(readelf -lW "$TV_BIN/tvsc" | awk '$1 == "TLS" { print $6 }')
    [ $((bytes)) -lt 1024 ]
}
