# shellcheck shell=bash
# What the scripts share: installing what is missing, and steps that are quiet unless they fail.
# Sourced from the root of the checkout, under `set -euo pipefail`.

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

# need_packages PACKAGE...: installs those that are missing, or names them and stops. Where the
# distribution is another one, the build itself tells what it lacks.
need_packages() {
    local package missing=()
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
    step "install ${#missing[@]} packages" install_packages "${missing[@]}"
}

# build PRESET: configures and builds it.
build() {
    step "configure $1" cmake --preset "$1"
    step "build $1" cmake --build --preset "$1"
}
