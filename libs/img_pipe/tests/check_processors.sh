#!/usr/bin/env bash
# usage: check_processors.sh <test program>
# The kernels on processors that this one may not be: each emulated one must find its own level, and run all conversions
# without an instruction that it has not. 77: no emulator.
set -euo pipefail
command -v qemu-x86_64 >/dev/null || { echo "no qemu-x86_64"; exit 77; }
while read -r processor level; do
    echo "== $processor: $level"
    qemu-x86_64 -cpu "$processor" -E ORV_CPU_LEVEL="$level",ORV_EMULATED=1 "$1" --gtest_brief=1 \
        --gtest_filter='Dispatch.*:Sweep.*:DemosaicReference.*'
done <<'LIST'
Conroe SSSE3
Nehalem SSE4.1
LIST
