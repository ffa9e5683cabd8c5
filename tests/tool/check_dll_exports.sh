#!/usr/bin/env bash
# Checks the export table of the Windows DLL: every class the headers mark
# GRABSYSTEM_EXPORT has exported members, the platform functions are there,
# and internals stay hidden.
# Usage: check_dll_exports.sh <grabsystem.dll> <source dir>
set -uo pipefail
dll="$1"
src="$2"
table="$(x86_64-w64-mingw32-objdump -p "$dll")" || { echo "objdump cannot read $dll" >&2; exit 1; }
exports="$(sed -n '/\[Ordinal\/Name Pointer\] Table/,/^$/p' <<<"$table")"
[ -n "$exports" ] || { echo "$dll has no export name table" >&2; exit 1; }

failed=0
classes="$(grep -rhoE 'class GRABSYSTEM_EXPORT (CAPABILITY\([^)]*\) )?[A-Za-z_][A-Za-z_0-9]*' "$src/grabsystem" --include=*.h |
           sed -E 's/.* ([A-Za-z_][A-Za-z_0-9]*)$/\1/' | sort -u)"
count=0
for c in $classes; do
  count=$((count + 1))
  # Itanium mangling: the class name appears as <length><name>.
  grep -q "${#c}${c}" <<<"$exports" || { echo "not exported: class $c" >&2; failed=1; }
done
for f in GetTickMs SleepMs StartThread WaitThread TranslatePath OpenFile; do
  grep -q "${#f}${f}" <<<"$exports" || { echo "not exported: function $f" >&2; failed=1; }
done
for hidden in CFpsMeterP; do
  grep -q "$hidden" <<<"$exports" && { echo "exported but internal: $hidden" >&2; failed=1; }
done
[ "$count" -ge 30 ] || { echo "found only $count exported classes in the headers" >&2; failed=1; }
[ "$failed" = 0 ] && echo "export table of $(basename "$dll"): $count classes and the platform functions exported"
exit "$failed"
