#!/usr/bin/env bash
# Fails when the plug-in exports a symbol outside its public interface: every
# defined dynamic symbol must belong to a public UmoNat class or factory.
set -euo pipefail
lib=$1
bad=$(nm -D --defined-only -C "$lib" | awk '{ $1=""; $2=""; sub(/^  /, ""); print }' |
  grep -Ev '^(UmoNat::|UmoHelper::|Umo[A-Za-z0-9_]*[:(]|umo[A-Za-z0-9_]*\(|NatFlowMcastCliSorter|(typeinfo|typeinfo name|vtable|VTT) for (UmoNat::|UmoHelper::|Umo|NatFlowMcastCliSorter))' |
  grep -Ev '^(_init|_fini|_edata|_end|__bss_start)$' || true)
if [ -n "$bad" ]; then
  echo "symbols exported outside the public interface:"
  echo "$bad"
  exit 1
fi
echo "exports: $(nm -D --defined-only "$lib" | wc -l) symbols, all public"
