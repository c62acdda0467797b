#!/usr/bin/env bash
# usage: check_levels.sh <objects of the built-in level> -- <objects of the AVX2 level>
# No kernel object may define a function that the linker could take for another object's, and those of the built-in level
# must hold no instruction above it. The AVX2 objects show that the search for such instructions finds them.
set -euo pipefail
fail=0 wide=0 above=0
for object in "$@"; do
    if [ "$object" = -- ]; then above=1; continue; fi
    [ -r "$object" ] || { echo "no $object" >&2; exit 1; }
    if nm -C "$object" | grep -E ' [WVu] '; then echo "weak symbols in $object" >&2; fail=1; fi
    count=$(objdump -d --no-show-raw-insn "$object" | grep -cE '%[yz]mm|	v[a-z0-9]+ ' || true)
    if [ $above = 0 ] && [ "$count" != 0 ]; then echo "$count instructions above the level in $object" >&2; fail=1; fi
    [ $above = 0 ] || wide=$((wide + count))
done
[ "$wide" -gt 0 ] || { echo "no AVX instruction found anywhere" >&2; fail=1; }
exit $fail
