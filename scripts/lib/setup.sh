# shellcheck shell=bash
# What the scripts share: installing what is missing, and steps that are quiet unless they fail.
# Sourced from the root of the checkout, under `set -euo pipefail`. Written for bash 3.2 and BSD tools.

mkdir -p build/log
UBSAN_OPTIONS=print_stacktrace=1${UBSAN_OPTIONS:+:$UBSAN_OPTIONS}
export UBSAN_OPTIONS

# step NAME COMMAND...: runs the command with its output in a file, and prints one line with the time
# it took; a failure prints the end of the output and stops the script.
step() {
    local name=$1 log=build/log/${1//[^A-Za-z0-9]/-}.log start=$SECONDS
    shift
    if "$@" >"$log" 2>&1 </dev/null; then
        echo "$name: $((SECONDS - start)) s"
    else
        echo "$name: FAILED after $((SECONDS - start)) s, the end of $log:"
        tail -n 60 "$log"
        exit 1
    fi
}

install_packages() {
    export DEBIAN_FRONTEND=noninteractive
    apt-get update && apt-get install -y --no-install-recommends -o DPkg::Lock::Timeout=120 "$@"
}

on_macos() {
    [[ $(uname) == Darwin ]]
}

# macos_header FOLDER: whether Homebrew (on either processor) or MacPorts has installed it.
macos_header() {
    [[ -d /opt/homebrew/include/$1 || -d /usr/local/include/$1 || -d /opt/local/include/$1 ]]
}

# need_on_macos PACKAGE...: names what macOS lacks of what these Debian packages have, and stops.
# The other packages are part of macOS, or belong to tests that run on Linux alone.
need_on_macos() {
    local package missing=""
    for package; do
        case $package in
        g++)
            # Without these tools /usr/bin/c++ and /usr/bin/git only offer to install them.
            xcode-select -p >/dev/null 2>&1 ||
                missing+=", Apple's command line tools (xcode-select --install)"
            ;;
        cmake) command -v cmake >/dev/null || missing+=", CMake 3.25 (brew install cmake)" ;;
        ninja-build) command -v ninja >/dev/null || missing+=", Ninja (brew install ninja)" ;;
        pkgconf)
            command -v pkg-config >/dev/null || missing+=", pkg-config (brew install pkgconf)"
            ;;
        libgtest-dev)
            macos_header gtest || missing+=", GoogleTest (brew install googletest)"
            ;;
        libbenchmark-dev)
            macos_header benchmark ||
                missing+=", Google Benchmark (brew install google-benchmark)"
            ;;
        esac
    done
    [[ -n $missing ]] || return 0
    echo "Missing: ${missing#, }" >&2
    exit 1
}

# need_packages PACKAGE...: installs those that are missing, or names them and stops. Where the
# distribution is another one, the build itself tells what it lacks.
need_packages() {
    local package missing=()
    if on_macos; then
        need_on_macos "$@"
        return 0
    fi
    command -v dpkg-query >/dev/null || return 0
    for package; do
        [[ $(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null) == installed ]] ||
            missing+=("$package")
    done
    ((${#missing[@]})) || return 0
    if ((EUID != 0)); then
        echo "Missing packages, and only root can install them: ${missing[*]}" >&2
        exit 1
    fi
    step "install ${#missing[@]} packages" install_packages ${missing[@]+"${missing[@]}"}
}

# processors: the number of them that can be used.
processors() {
    getconf _NPROCESSORS_ONLN
}

# build PRESET: configures and builds it. On macOS warnings stay warnings: each release of Apple's
# compiler and headers brings its own.
build() {
    if on_macos; then
        step "configure $1" cmake --preset "$1" -DPLATFORM_WERROR=OFF
    else
        step "configure $1" cmake --preset "$1"
    fi
    step "build $1" cmake --build --preset "$1"
}
