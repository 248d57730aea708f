#!/bin/bash
# The documents are true: the example files stand in them as they are, the fixed texts of the messages
# page stand in the sources, and the commands (blocks marked sh, and the examples of the manual page)
# end in order when a reader types them into a copy of the project.
# Usage: documents_test.sh BUILD PROJECT
set -eu
build=$1 project=$2
place=$(mktemp -d)
trap 'rm -rf "$place"' EXIT
failed=0
fail() {
    echo "$1"
    failed=1
}

cd "$project"
while read -r document example; do
    [[ "$(<"$document")" == *"$(<"$example")"* ]] || fail "$document does not show $example as it is"
done <<'PAIRS'
docs/formats.md examples/engine.spec
docs/formats.md examples/engine.table
docs/formats.md examples/engine.variables
docs/writing-a-task.md examples/minimal_task.cpp
docs/writing-a-task.md tests/consumer/CMakeLists.txt
PAIRS

# Between placeholders, numbers and keys; literals that the sources break over lines are put together.
sources=$(cat {xcp,xcp_master,xcp_daq,io,a2l,simulated_slave,host/standin,task,task/*}/*.{h,cpp} 2>/dev/null | tr '\n' '\r' |
    sed -E 's/\\"/\x01/g; s/"[[:space:]\r]*"//g; s/\x01/"/g' | tr '\r' '\n')
texts=$(grep '^|' docs/messages.md | cut -d '|' -f 2,3 | grep -oE '`[^`]+`' | tr -d '`' |
    sed -E 's/<[^<>]*>|\.{3}|: |[0-9]+|@[A-Z0-9_]+/\n/g' | grep -E '[^ ]{2,} +[^ ]{2,}' | sort -u)
[ "$(wc -l <<<"$texts")" -gt 100 ] || fail "the messages page has hardly any texts"
while IFS= read -r text; do
    [[ "$sources" == *"$text"* ]] || fail "no source has the text: $text"
done <<<"$texts"

mkdir -p "$place/home" "$place/copy/build"
tar -c --exclude=./build --exclude=./.git . | tar -x -C "$place/copy"
ln -s "$build" "$place/copy/build/release"
export HOME="$place/home" PATH="$build/bin:$PATH"

# What builds, checks or measures everything is not run once more: that it is there must do.
preset_exists() { grep -q "\"name\": \"${*: -1}\"" CMakePresets.json; }
cmake() { if [[ " $* " == *" --preset "* ]]; then preset_exists "$@"; else command cmake "$@"; fi; }
ctest() { preset_exists "$@"; }
run-clang-tidy() { test -s .clang-tidy; }
export -f preset_exists cmake ctest run-clang-tidy

run() { # DOCUMENT FOLDER COMMANDS
    [ -n "$3" ] || fail "$1 has no commands"
    (cd "$2" && bash -eux -o pipefail -c "$3") >"$place/log" 2>&1 ||
        fail "commands of $1 failed:"$'\n'"$(tail -n 5 "$place/log")"
}

for document in README.md CONTRIBUTING.md docs/*.md; do
    commands=$(sed -n '/^```sh$/,/^```$/{/^```/!p}' "$document" | sed -E 's|^\./run-|test -x &|; s|^(test -x [^ ]+).*|\1|')
    run "$document" "$place/copy" "$commands"
done
run "the manual page" "$place/copy/examples" "$(sed -n '/^\.EX/,/^\.EE/{/^\./!p}' docs/xcp_daq_task.1 | sed 's|\\-|-|g')"
exit $failed
