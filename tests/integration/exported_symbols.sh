#!/bin/bash
# What the library exports: its own names only, and everything that lib-domain/exports.list has (a
# program linked to it must go on finding it). New functions may come without being listed;
# "UPDATE=1" writes the list anew.
. "$(dirname "$0")/../support/cli.sh"

library=$build/lib/libmailserver-domain.so.1
list=$source_dir/lib-domain/exports.list
allowed='^(MDOMAIN::|BCC::|MimeDefang::|korvmailserver::LogException::|(typeinfo|typeinfo name|vtable) for (MDOMAIN::|MimeDefang$|korvmailserver::LogException$))'
nm -DC --defined-only "$library" | sed 's/^[0-9a-f]* //' >"$scratch/symbols"
foreign=$(cut -c3- "$scratch/symbols" | grep -vE "$allowed" | grep -vE '^(non-virtual thunk|guard variable) ')
[ -z "$foreign" ] || fail "exported besides the library's own names: $foreign"
# Weak symbols (inline functions) come and go with the optimiser; functions of sources do not. Those
# in INTERNAL and the private ones are nobody's to call.
sed -n 's/^T //p' "$scratch/symbols" | grep -vE '::INTERNAL::|::_[A-Z]' | LC_ALL=C sort -u \
  >"$scratch/functions"
[ -z "${UPDATE:-}" ] || cp "$scratch/functions" "$list"
lost=$(LC_ALL=C comm -23 "$list" "$scratch/functions")
[ -z "$lost" ] || fail "no longer exported: $lost"
finish
