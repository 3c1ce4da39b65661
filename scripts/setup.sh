# Shared by scripts/demo and scripts/test (sourced, not run): installs what is missing from Debian's
# packages, then configures and builds a tree.
set -euo pipefail

VEXA_ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
VEXA_PACKAGES=(cmake ninja-build g++ pkg-config zlib1g-dev libpng-dev libraw-dev libexiv2-dev libtiff-dev
               qt6-base-dev qt6-l10n-tools qt6-image-formats-plugins xvfb xauth
               libopencv-dev opencv-data libgtest-dev libbenchmark-dev clang libclang-rt-14-dev help2man man-db)

as_root() {
    if [ "$(id -u)" -eq 0 ]; then "$@"
    elif command -v sudo >/dev/null; then sudo "$@"
    else echo "need root (or sudo) to run: $*" >&2; return 1
    fi
}

# install_packages PACKAGE...: installs those of the named Debian packages that are missing.
install_packages() {
    local missing=()
    for p in "$@"; do
        dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    echo "installing: ${missing[*]}" >&2
    as_root env DEBIAN_FRONTEND=noninteractive apt-get update -qq
    as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}"
}

install_missing_packages() { install_packages "${VEXA_PACKAGES[@]}"; }

# configure_and_build BUILD_DIR [cmake options...]
configure_and_build() {
    local dir=$1
    shift
    cmake -S "$VEXA_ROOT" -B "$dir" -G Ninja "$@"
    cmake --build "$dir" -j "$(nproc)"
}
