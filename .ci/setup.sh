# Shell functions of ./run, ./test and .ci/run: packages and builds. Sourced; `top` is the project's folder.

# Names of Debian 12 and later, and of Ubuntu 22.04 and later. README.md tells which of these were tried.
packages_build="g++ cmake ninja-build pkg-config qtbase5-dev libopencv-core-dev libopencv-imgproc-dev liblog4cpp5-dev
    libaravis-dev libusb-1.0-0-dev libpcap-dev libturbojpeg0-dev libtiff-dev libdeflate-dev libavformat-dev libavcodec-dev
    libavutil-dev libhdf5-dev zlib1g-dev"
packages_headless="xvfb openbox fonts-dejavu-core"
packages_test="libgtest-dev libgmock-dev aravis-tools aravis-tools-cli iproute2 util-linux xdotool imagemagick ffmpeg libtiff-tools pngcheck tshark
    python3-numpy"
packages_ci="clang-format-19 clang-tidy-19 dpkg-dev file lintian python3-h5py hdf5-tools teem-apps
    python3-gdal python3-vtk9"

say() {
    printf '%s: %s\n' "$(basename "$0")" "$*"
}

# have PACKAGE: it is installed
have() {
    [ "$(dpkg-query -W -f='${db:Status-Status}' "$1" 2>/dev/null)" = installed ]
}

# need PACKAGE...: installs what is missing. Where that cannot be done it says so and goes on: the machine may hold the
# same things under other names, and the configuration finds out.
need() {
    local name root=() missing=()
    if ! command -v apt-get >/dev/null; then
        say "no apt-get: this system is set up by hand. Needed, by the names of Debian 12:" "$@"
        return 0
    fi
    for name in "$@"; do
        have "$name" || missing+=("$name")
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    if [ "$(id -u)" != 0 ]; then
        if ! command -v sudo >/dev/null; then
            say "neither root nor sudo; please install:" "${missing[@]}"
            return 0
        fi
        root=(sudo)
        [ -t 0 ] || root=(sudo -n)
    fi
    root+=(env DEBIAN_FRONTEND=noninteractive)
    say "installing" "${missing[@]}"
    "${root[@]}" apt-get update -qq -o DPkg::Lock::Timeout=300 </dev/null || say "apt-get update failed; going on"
    "${root[@]}" apt-get install -y -qq --no-install-recommends -o DPkg::Lock::Timeout=300 "${missing[@]}" \
        </dev/null >"$setup_log" 2>&1 || {
        tail -n 20 "$setup_log" >&2
        say "apt-get could not install" "${missing[@]}"
        say "going on with what is there"
    }
}

# build PRESET [CMAKE-OPTION...] [-- TARGET...]: configures where that has not been done, and builds.
build() {
    local preset=$1 options=() folder
    shift
    while [ $# -gt 0 ] && [ "$1" != -- ]; do
        options+=("$1")
        shift
    done
    [ $# -eq 0 ] || shift
    folder=$top/build/$preset
    if [ -z "${CMAKE_CXX_COMPILER_LAUNCHER:-}" ] && command -v ccache >/dev/null; then
        export CMAKE_CXX_COMPILER_LAUNCHER=ccache
    fi
    if [ ${#options[@]} -gt 0 ] || [ ! -f "$folder/build.ninja" ] || [ "$top/CMakePresets.json" -nt "$folder/build.ninja" ]; then
        (cd "$top" && cmake --preset "$preset" "${options[@]}") || return
    fi
    cmake --build "$folder" ${1:+--target "$@"}
}

setup_log=$(mktemp)
trap 'rm -f "$setup_log"' EXIT
