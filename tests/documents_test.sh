#!/bin/bash
# The documents show example files whole: each must stand there as it is in its file.
# Usage: documents_test.sh PROJECT
set -eu
cd "$1"
failed=0
while read -r document example; do
    if [[ "$(<"$document")" != *"$(<"$example")"* ]]; then
        echo "$document does not show $example as it is"
        failed=1
    fi
done <<'PAIRS'
docs/formats.md examples/engine.spec
docs/formats.md examples/engine.table
docs/formats.md examples/engine.variables
docs/writing-a-task.md examples/minimal_task.cpp
PAIRS
exit $failed
