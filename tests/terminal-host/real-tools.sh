#!/bin/sh
# real-tools.sh HOST: in the empty folder where it is started, real tools ask for edits and
# credentials, and HOST answers them. Stops at the first that goes wrong.
set -eux
host=$1
# The editor is "sed -i.old", which GNU's and BSD's sed take alike.

# expect TEXT COMMAND...: the command prints just that.
expect() {
    wanted=$1
    shift
    test "$wanted" = "$("$@")"
}

git init -q -b main "it's a dépôt"
cd "it's a dépôt"
for name in one two three four; do
    echo "$name" >"$name"
    git add "$name"
    "$host" --message "$name" -- git commit -q
done
echo more >>four
git add four
status=0
"$host" --decline -- git commit || status=$?
test "$status" = 1
git commit -q --fixup HEAD
"$host" --todo "sed -i.old '2,3s/^pick/reword/'" --message Zwei --message Drei -- \
    git rebase -q -i --autosquash --root
expect "four
Drei
Zwei
one" git log --format=%s
expect "more" tail -n 1 four
"$host" --edit "sed -i.old '1s/^/Edited: /'" -- git commit -q --amend
expect "Edited: four" git log -1 --format=%s
git switch -q -c side
git commit -q --allow-empty -m Side
git switch -q main
"$host" --edit "sed -i.old '1s/^Merge branch/Merged/'" -- git merge -q --no-ff --edit side
expect "Merged 'side'" git log -1 --format=%s
"$host" --message Tagged -- git tag -a v1
expect "Tagged" git tag -n --format='%(subject)'
# shellcheck disable=SC2016
"$host" --askpass 'f() { case $1 in User*) echo me ;; *) echo geheim ;; esac; }; f' -- \
    git credential fill >../filled <<END
protocol=https
host=example.org
END
expect "protocol=https
host=example.org
username=me
password=geheim" cat ../filled
cd ..

hg init mercurial
cd mercurial
for name in one two; do
    echo "$name" >"$name"
    "$host" --message "$name" -- hg commit -q --addremove
done
"$host" --todo "sed -i.old '1s/^pick/mess/'" --message Reworded -- \
    hg --config extensions.histedit= --config ui.interface=text histedit -q 0
expect "0 Reworded
1 two" hg log -r 'all()' -T '{rev} {desc}\n'
cd ..

echo "ALL ALL=(ALL) ALL" >sudoers
chmod 440 sudoers
"$host" --edit "sed -i.old '\$s/\$/ # edited/'" -- visudo -q -f "$PWD/sudoers"
expect "ALL ALL=(ALL) ALL # edited" tail -n 1 sudoers

ssh-keygen -q -t ed25519 -N geheim -f key
status=0
"$host" --decline-prompts -- ssh-keygen -y -f key || status=$?
test "$status" = 255
expect "$(cat key.pub)" "$host" --askpass 'echo geheim #' -- ssh-keygen -y -f key
