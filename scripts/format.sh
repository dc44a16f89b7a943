#!/bin/sh
# Formats all sources in place; with --check it changes nothing and fails where something would change.
set -eu
cd "$(dirname -- "$0")/.."

if [ "${1:-}" = --check ]; then
    sh scripts/sources.sh h cpp | xargs clang-format --dry-run -Werror
else
    sh scripts/sources.sh h cpp | xargs clang-format -i
fi
