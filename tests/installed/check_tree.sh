#!/bin/sh
# check_tree.sh CMAKE BUILD BINDIR LIBDIR SOURCE: installs BUILD under a fresh prefix and moves the tree;
# its command runs, on its own library, and programs are built on it.
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

# A program that knows nothing but where the tree is, by pkg-config and by CMake.
libraries=$scratch/moved/$4
readelf -d "$libraries/libqel.so.1" | grep -qE 'lib[at]san' && exit 0 # it would have to be built so, too
flags=$(PKG_CONFIG_PATH=$libraries/pkgconfig pkg-config --cflags --libs qel)
# shellcheck disable=SC2086 # flags are words
cc -o "$scratch/program" "$5/program.c" $flags "-Wl,-rpath-link,$libraries"
LD_LIBRARY_PATH=$libraries "$scratch/program"
mkdir "$scratch/other"
cat >"$scratch/other/CMakeLists.txt" <<END
cmake_minimum_required(VERSION 3.25)
project(other C)
find_package(qel 1 REQUIRED)
add_executable(other $5/program.c)
target_link_libraries(other PRIVATE qel::qel)
END
"$1" -S "$scratch/other" -B "$scratch/other" "-DCMAKE_PREFIX_PATH=$scratch/moved" >>"$scratch/log"
"$1" --build "$scratch/other" >>"$scratch/log"
"$scratch/other/other"
