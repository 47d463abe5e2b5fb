#!/usr/bin/env bash
# What a binary we ship needs of the machine it runs on: the C library's own
# files only (C library, threads, loader, dynamic loading, maths), and no symbol
# version of the C library newer than the oldest glibc that .NET supports.
set -euo pipefail
ceiling=2.28
status=0
for binary in "$@"; do
    needed=$(readelf -d "$binary" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | tr '\n' ' ')
    highest=$(objdump -T "$binary" | grep -oE 'GLIBC_[0-9]+(\.[0-9]+)+' | sed 's/GLIBC_//' | sort -V | tail -1)
    echo "$(basename "$binary"): needs ${needed}; highest GLIBC_$highest"
    for library in $needed; do
        case $library in
        libc.so.6 | libm.so.6 | libdl.so.2 | libpthread.so.0 | ld-linux-*.so.*) ;;
        *) echo "  not found on every machine: $library"; status=1 ;;
        esac
    done
    if [ "$(printf '%s\n%s\n' "$highest" "$ceiling" | sort -V | tail -1)" != "$ceiling" ]; then
        echo "  needs GLIBC_$highest, newer than GLIBC_$ceiling:"
        objdump -T "$binary" | sed -n 's/.*GLIBC_\([0-9.]*\)[)]* *\([^ ]*\)$/\1 \2/p' | sort -V |
            while read -r version symbol; do
                [[ $(printf '%s\n%s\n' "$version" "$ceiling" | sort -V | tail -1) != "$ceiling" ]] &&
                    echo "    $symbol (GLIBC_$version)"
            done
        status=1
    fi
done
exit $status
