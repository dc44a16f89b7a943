#!/bin/sh
# Lists this project's own sources with the given endings: sources.sh h cpp
set -eu
cd "$(dirname -- "$0")/.."
for ending in "$@"; do
    git ls-files --cached --others --exclude-standard -- "*.$ending"
done
