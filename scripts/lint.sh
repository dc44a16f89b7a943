#!/bin/sh
# clang-tidy, cppcheck, the format and the words; every check runs, and 1 is the answer when one has found something.
set -u
cd "$(dirname -- "$0")/.."
jobs=${JOBS:-$(nproc)}
status=0

echo 'lint: words'
sh scripts/words.sh || status=1

echo 'lint: format'
sh scripts/format.sh --check || status=1

# Without the tests, whose events and sinks delete themselves. The compilers check format strings better; a right
# shift of a negative number is arithmetic with all of them.
echo 'lint: cppcheck'
cppcheck --quiet --error-exitcode=1 --std=c++17 --language=c++ --inline-suppr -j "$jobs" \
    --enable=warning,performance,portability --suppress=missingIncludeSystem \
    --suppress=invalidPrintfArgType_uint --suppress=useInitializationList --suppress=shiftNegativeLHS --suppress=virtualCallInConstructor \
    -I . -I include -I platform/include -I platform/ipstack \
    $(sh scripts/sources.sh cpp | grep -v '^tests/') || status=1

echo 'lint: clang-tidy'
cmake --preset clang >/dev/null || exit 1
run-clang-tidy -quiet -p build/clang -j "$jobs" "^$(pwd)/(?!build|\.deps).*\.cpp$" >build/clang-tidy.log 2>&1 || {
    grep -E '(warning|error):' build/clang-tidy.log | sort -u
    echo 'lint: the whole output is in build/clang-tidy.log'
    status=1
}

exit $status
