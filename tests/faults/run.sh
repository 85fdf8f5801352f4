#!/bin/bash
# Applies each deliberate fault of faults.txt in turn to a scratch copy of the tree, rebuilds the
# test binary (ccache keeps this quick) and prints which tests fail: "name | failing tests".
# Usage: tests/faults/run.sh [name-pattern]. The scratch copy lives in $FAULTS_SCRATCH.
set -u
src=$(cd "$(dirname "$0")/../.." && pwd)
scratch=${FAULTS_SCRATCH:-/tmp/crate07-faults}
jobs=${JOBS:-2}
mkdir -p "$scratch"
rm -rf "$scratch/src" && mkdir -p "$scratch/src"
# Fresh times on every file (tar -m), so that the scratch build sees every difference.
tar -C "$src" --exclude='./build*' --exclude=./.git -cf - . | tar -C "$scratch/src" -xmf -
cmake -S "$scratch/src" -B "$scratch/build" -DCMAKE_BUILD_TYPE=Release -DCRATE07_BENCH=OFF \
    -DCMAKE_CXX_COMPILER_LAUNCHER=ccache >"$scratch/cmake.log" || exit 1
missed=0
while IFS='|' read -r name file expr; do
    [[ -z $name || $name == \#* || ! $name =~ ${1:-.} ]] && continue
    [[ -n ${last:-} ]] && cp "$src/$last" "$scratch/src/$last"
    last=$file
    perl -0pi -e "$expr" "$scratch/src/$file"
    if cmp -s "$src/$file" "$scratch/src/$file"; then
        echo "$name | NOT APPLIED" && missed=1 && continue
    fi
    if ! cmake --build "$scratch/build" -j "$jobs" --target crate07_tests >"$scratch/$name.log" 2>&1; then
        echo "$name | DOES NOT BUILD" && missed=1 && continue
    fi
    out=$(cd "$scratch/build" && timeout 600 ./crate07_tests --gtest_brief=1 2>&1)
    rc=$?
    failed=$(sed -n 's/^\[  FAILED  \] \([A-Za-z0-9_]*\.[A-Za-z0-9_]*\).*/\1/p' <<<"$out" | sort -u | tr '\n' ' ')
    [[ $rc != 0 && -z $failed ]] && failed="(exit $rc)"
    [[ -z $failed ]] && failed="CAUGHT BY NOTHING" && missed=1
    echo "$name | $failed"
done <"$scratch/src/tests/faults/faults.txt"
exit $missed
