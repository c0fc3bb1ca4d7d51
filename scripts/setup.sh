# setup.sh: sourced by ./run and ./check. Makes sure that what the build needs is on the machine
# (Debian 12), and is quick when it is. Packages are installed as root, or with sudo.

required_packages=(
    g++ clang clang-format clang-tidy libclang-rt-14-dev cmake ninja-build ccache pkg-config git
    libtirpc-dev rpcbind iproute2 libnsl-dev libsqlite3-dev libgdbm6 libldap-dev
    libcli11-dev nlohmann-json3-dev
    libgtest-dev libgmock-dev libbenchmark-dev
    openssl libssl-dev nettle-dev libgmp-dev libtomcrypt-dev libgnutls28-dev libtasn1-6-dev
    python3 libc-dev-bin valgrind
)

as_root() {
    if [ "$(id -u)" -eq 0 ]; then "$@"; else sudo "$@"; fi
}

install_packages() {
    local missing=() package
    for package in "${required_packages[@]}"; do
        dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null | grep -qx installed ||
            missing+=("$package")
    done
    [ ${#missing[@]} -eq 0 ] && return
    echo "installing: ${missing[*]}" >&2
    as_root env DEBIAN_FRONTEND=noninteractive apt-get update -qq
    as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends \
        "${missing[@]}" >/dev/null
}

# Programs of these packages serve on private hosts only: they are unpacked into build/packages and not
# installed, so that nothing of theirs is ever started on this machine.
unpacked_packages=(ypserv ypbind-mt)

unpack_packages() {
    local folder=build/packages package
    [ "$(cat "$folder/unpacked" 2>/dev/null)" = "${unpacked_packages[*]}" ] && return
    echo "unpacking: ${unpacked_packages[*]}" >&2
    rm -rf "$folder"
    mkdir -p "$folder"
    (cd "$folder" && apt-get download -qq "${unpacked_packages[@]}" 2>/dev/null) || {
        as_root apt-get update -qq
        (cd "$folder" && apt-get download -qq "${unpacked_packages[@]}" 2>/dev/null)
    }
    for package in "$folder"/*.deb; do
        dpkg -x "$package" "$folder"
        rm "$package"
    done
    echo "${unpacked_packages[*]}" >"$folder/unpacked"
}

# build PRESET [cmake --build arguments]
build() {
    local preset=$1
    shift
    [ -f "build/$preset/build.ninja" ] || cmake --preset "$preset" >/dev/null
    cmake --build --preset "$preset" "$@" -- --quiet
}

export CCACHE_SLOPPINESS=${CCACHE_SLOPPINESS:-pch_defines,time_macros} # takes precompiled headers
export CMAKE_C_COMPILER_LAUNCHER=ccache CMAKE_CXX_COMPILER_LAUNCHER=ccache
install_packages
unpack_packages
