# Sourced by the other scripts: installs what is missing on a Debian machine, and builds.

set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

packages=(g++ cmake ninja-build libboost-dev libcli11-dev libgtest-dev nlohmann-json3-dev
    libbenchmark-dev libncurses-dev libpango1.0-dev libssl-dev libtomlplusplus-dev
    libturbojpeg0-dev libusbredirparser-dev libutf8proc-dev libvncserver-dev libx11-data
    libxkbcommon-dev pkg-config xkb-data zlib1g-dev fonts-dejavu-core iproute2 nftables scdoc)
# Node.js from elsewhere brings an npm of its own, and conflicts with Debian's.
command -v npm >/dev/null || packages+=(npm)

# What the tests look with, and the viewers that they try.
test_packages=(tmux tshark procps openssl ustreamer xvfb x11-xkb-utils xdotool
    tigervnc-viewer gvncviewer chromium chromium-driver python3-selenium)

as_root() {
    if [ "$(id -u)" -eq 0 ]; then "$@"; else sudo "$@"; fi
}

update_lists() {
    as_root apt-get update -qq
}

install_missing() {
    local missing=() package
    for package in "${packages[@]}"; do
        dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q 'ok installed' ||
            missing+=("$package")
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    echo "installing: ${missing[*]}"
    update_lists
    as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq \
        --no-install-recommends "${missing[@]}" >/dev/null
}

# build PRESET TARGET...: configures and builds in build-PRESET, quietly unless it fails.
build() {
    local preset=$1 log
    shift
    log=$(mktemp)
    if ! { cmake --preset "$preset" && cmake --build --preset "$preset" --target "$@"; } \
        >"$log" 2>&1; then
        cat "$log" >&2
        rm -f "$log"
        echo "the build failed" >&2
        exit 1
    fi
    rm -f "$log"
}
