#!/bin/sh
# check_library.sh LIBRARY LIST: the library exports the names of LIST, in their versions, needs no
# other libraries than the C library, libtirpc, libnsl and libxfn, and is bound as a whole when it is loaded.
# check_library.sh --write LIBRARY LIST: makes LIST anew.
set -eu
export LC_ALL=C

exported() {
    nm -D --defined-only --with-symbol-versions "$1" |
        awk '$2 != "A" { print ($2 == "T" ? "function" : "data"), $3 }' | sort
}

if [ "$1" = --write ]; then
    exported "$2" >"$3"
    exit
fi

status=0
if ! exported "$1" | diff -u "$2" -; then
    echo "The interface has changed. If it should: $0 --write $1 $2"
    status=1
fi
needed=$(readelf -d "$1" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
if [ "$(echo $needed)" != "libxfn.so.1 libnsl.so.2 libtirpc.so.3 libc.so.6" ]; then
    echo "The library needs:" $needed
    status=1
fi
if ! readelf -d "$1" | grep -q BIND_NOW; then
    echo "The library is bound call by call, which leaves copies of secrets on the stack."
    status=1
fi
exit $status
