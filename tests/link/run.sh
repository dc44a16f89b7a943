#!/bin/sh
# run.sh TEST BIN WORK [ARGUMENTS]: runs a test in an empty folder.
set -eu
here=$(CDPATH="" cd -- "$(dirname -- "$0")" && pwd)
test=$1 bin=$2 work=$3
shift 3
rm -rf "$work"
mkdir -p "$work"
# shellcheck disable=SC1091
. "$here/lib.sh"
# shellcheck disable=SC1090
. "$here/$test.sh"
