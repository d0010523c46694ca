#!/usr/bin/env bash
# demo.sh BIN: in a throw-away repository, real git asks for edits through BIN/editor-shim, and
# BIN/example-minimal-host answers them.
set -euo pipefail
bin=$1

room=$(mktemp -d)
trap 'rm -rf "$room"' EXIT
# The host's pipe, git's files and the user's settings all stay in the throw-away folder.
export TMPDIR=$room HOME=$room GIT_CONFIG_NOSYSTEM=1 GIT_EDITOR="'$bin/editor-shim'"
unset GIT_CONFIG_GLOBAL XDG_CONFIG_HOME GIT_DIR GIT_WORK_TREE
git config --global user.name "Demo" && git config --global user.email demo@example.org
git init -q -b main "$room/repository"
cd "$room/repository"

# host COMMAND [TEXT]...: runs a git command under the host, which answers edits with the texts.
host() {
    echo "\$ $1"
    local status=0
    "$bin/example-minimal-host" "$@" >"$room/out" 2>"$room/err" || status=$?
    sed -nE "s|^asked to edit $room/repository/(.*): (.*)|  git asked to edit \1; the host answered: \2|p" \
        "$room/out"
    if ((status)); then
        sed -n 's/^error: \(There was a problem\).*/  git stopped: \1 with the editor/p' "$room/err"
    fi
    return "$status"
}

echo one >file && git add file
host "git commit" "Start with one line"
echo two >>file && git add file
host "git commit" "Add the secnod line"

second=$(git rev-parse --short HEAD)
host "git rebase --interactive --root" \
    "pick $(git rev-parse --short HEAD~1) first
reword $second second" "Add the second line" | sed -E 's/: pick .*/: pick, reword/; /^reword /d'

echo three >>file && git add file
if host "git commit"; then
    echo "An edit that the host declined was committed." >&2
    exit 1
fi
echo "\$ git log --oneline"
git log --format='  %h %s'
test "$(git log --format=%s)" = "Add the second line
Start with one line"
