#!/usr/bin/env bash
# Checks the export table of the Windows DLL against the public surface:
# every class the public headers (include/grabsystem) mark GRABSYSTEM_EXPORT
# has exported members, so do the codec functions; the internal headers
# beside the sources mark nothing for export, and the internals
# (operating-system services, the CUDA driver binding, the frame-rate meter)
# stay hidden.
# Usage: check_dll_exports.sh <grabsystem.dll> <source dir>
set -uo pipefail
dll="$1"
src="$2"
table="$(x86_64-w64-mingw32-objdump -p "$dll")" || { echo "objdump cannot read $dll" >&2; exit 1; }
exports="$(sed -n '/\[Ordinal\/Name Pointer\] Table/,/^$/p' <<<"$table")"
[ -n "$exports" ] || { echo "$dll has no export name table" >&2; exit 1; }

failed=0
# Itanium mangling: a name appears as <length><name>.
has() { grep -q "${#1}$1" <<<"$exports"; }

classes="$(grep -rhoE '(class|struct) GRABSYSTEM_EXPORT (GRABSYS_CAPABILITY\([^)]*\) )?[A-Za-z_][A-Za-z_0-9]*' "$src/include/grabsystem" --include=*.h |
           sed -E 's/.* ([A-Za-z_][A-Za-z_0-9]*)$/\1/' | sort -u)"
count=0
for c in $classes; do
  count=$((count + 1))
  has "$c" || { echo "not exported: class $c" >&2; failed=1; }
done
functions="$(grep -rhoE '^GRABSYSTEM_EXPORT [^(]* \*?[A-Za-z_][A-Za-z_0-9]*\(' "$src/include/grabsystem/format" --include=*.h |
             sed -E 's/.*[ *]([A-Za-z_][A-Za-z_0-9]*)\($/\1/' | sort -u)"
nfunctions=0
for f in $functions; do
  nfunctions=$((nfunctions + 1))
  has "$f" || { echo "not exported: codec function $f" >&2; failed=1; }
done
marked="$(grep -rl 'GRABSYSTEM_EXPORT' "$src/grabsystem" --include=*.h)"
[ -z "$marked" ] || { echo "internal headers mark exports: $marked" >&2; failed=1; }
for hidden in CFpsMeterP SystemTickMs SystemStartThread MemoryStream AllocatePages OpenLibrary FindSymbol Absence; do
  has "$hidden" && { echo "exported but internal: $hidden" >&2; failed=1; }
done
[ "$count" -ge 40 ] || { echo "found only $count exported classes in the headers" >&2; failed=1; }
[ "$nfunctions" -ge 30 ] || { echo "found only $nfunctions exported codec functions in the headers" >&2; failed=1; }
[ "$failed" = 0 ] && echo "export table of $(basename "$dll"): $count classes and $nfunctions codec functions exported, internals hidden"
exit "$failed"
