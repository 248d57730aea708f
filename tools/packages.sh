# Sourced by the run-* scripts: makes sure that Debian packages are there, and builds.

build_packages=(g++ cmake ninja-build libcli11-dev libfmt-dev libmimalloc-dev libpcap-dev libgtest-dev)
bench_packages=(libbenchmark-dev valgrind python3-numpy)
coverage_packages=(gcovr)
# llvm: the leak check names functions, for which it needs the symbolizer.
check_packages=(pkg-config clang llvm libclang-rt-14-dev clang-format clang-tidy binutils
    doxygen gnuplot-nox)

is_installed() {
    [ "$(dpkg-query -W -f='${db:Status-Status}' "$1" 2>/dev/null)" = installed ]
}

# Installs what is missing when the user may, and otherwise says what to install.
need_packages() {
    local package missing=() as_root=()
    for package in "$@"; do
        is_installed "$package" || missing+=("$package")
    done
    [ ${#missing[@]} -eq 0 ] && return
    if [ "$(id -u)" -ne 0 ]; then
        as_root=(sudo -n)
    fi
    if ! command -v apt-get >/dev/null || ! "${as_root[@]}" true 2>/dev/null; then
        echo "Please install: sudo apt-get install ${missing[*]}" >&2
        exit 1
    fi
    echo "Installing ${missing[*]}"
    "${as_root[@]}" apt-get update -q >/dev/null
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get install -q -y --no-install-recommends "${missing[@]}" >/dev/null
}

# Runs a command and shows what it prints only when it fails.
quietly() {
    local log
    log=$(mktemp)
    if ! "$@" >"$log" 2>&1; then
        cat "$log" >&2
        rm -f "$log"
        exit 1
    fi
    rm -f "$log"
}

# configure_and_build PRESET [TARGET...]
configure_and_build() {
    echo "Building the $1 preset"
    quietly cmake --preset "$1"
    quietly cmake --build --preset "$1" ${2:+--target "${@:2}"}
}
