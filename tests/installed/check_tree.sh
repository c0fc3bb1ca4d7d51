#!/bin/sh
# check_tree.sh CMAKE BUILD BINDIR LIBDIR: installs BUILD under a fresh prefix and moves the tree; its
# command runs, on its own library.
set -eu
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
unset LD_LIBRARY_PATH
"$1" --install "$2" --prefix "$scratch/first" >"$scratch/log"
mv "$scratch/first" "$scratch/moved"
qel=$scratch/moved/$3/qel

digest=$(printf abc | "$qel" digest)
[ "$digest" = "900150983cd24fb0d6963f7d28e17f72  -" ] || {
    echo "the installed command printed: $digest"
    exit 1
}
ldd "$qel" | grep -F "$scratch/moved/$3/../$4/libqel.so.1" >/dev/null || {
    echo "the installed command runs on another library:"
    ldd "$qel"
    exit 1
}
test -r "$scratch/moved/share/man/man1/qel.1"
test -r "$scratch/moved/share/locale/de/LC_MESSAGES/qelcat" # as glibc looks for it
test -r "$scratch/moved/lib/tmpfiles.d/qel.conf"
