#!/usr/bin/env bash
# demo.sh BIN: in a throw-away repository, real git asks for edits and a credential, and
# BIN/terminal-host answers them.
set -euo pipefail
bin=$1

room=$(cd "$(mktemp -d)" && pwd -P) # as git writes it: on macOS there is a link on the way
trap 'rm -rf "$room"' EXIT
# The host's pipe, git's files and the user's settings all stay in the throw-away folder.
export TMPDIR=$room HOME=$room GIT_CONFIG_NOSYSTEM=1
unset GIT_CONFIG_GLOBAL XDG_CONFIG_HOME GIT_DIR GIT_WORK_TREE
git config --global user.name "Demo" && git config --global user.email demo@example.org
git config --global credential.helper "" # forgets those of the system, such as macOS's keychain
git init -q -b main "$room/repository"
cd "$room/repository"

# host ARGUMENT...: shows the command line, and what was asked and answered.
host() {
    local word status=0
    printf '%s' "\$ terminal-host"
    for word; do
        word=${word#"$room/"}
        case $word in
        *\'*) word="\"$word\"" ;;
        *[!-a-z]*) word="'$word'" ;;
        esac
        printf ' %s' "$word"
    done
    echo
    "$bin/terminal-host" --verbose "$@" >"$room/out" 2>"$room/err" || status=$?
    sed -nE "s|$room/repository/||; s/.*terminal-host: /  /p; s/^error: (There was a problem).*/  git: \1 with the editor/p" \
        "$room/err"
    sed -nE 's/^(username|password)=.*/  git got &/p' "$room/out"
    return "$status"
}

echo one >file && git add file
host --message "Start with one line" -- git commit
echo two >>file && git add file
host --message "Add the secnod line" -- git commit
host --todo "sed -i.old '2s/pick/reword/'" --message "Add the second line" -- \
    git rebase --interactive --root

echo three >>file && git add file
if host --decline -- git commit; then
    echo "An edit that the host declined was committed." >&2
    exit 1
fi

cat >"$room/wallet" <<'END'
#!/bin/sh
case $1 in Username*) echo demo ;; *) echo secret ;; esac
END
chmod +x "$room/wallet"
printf 'protocol=https\nhost=example.org\n\n' |
    host --askpass "$room/wallet" -- git credential fill

echo "\$ git log --oneline"
git log --format='  %h %s'
test "$(git log --format=%s)" = "Add the second line
Start with one line"
