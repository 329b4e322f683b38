#!/bin/bash
# exports.sh BUILD_DIR SCRATCH [--update] : what the shared library offers to programs.
#
# Nothing but the library's own names may be exported, and the interface must be the one that is
# written down in exports.list: a name that is missing there breaks programs, a new one is a promise.
# Private methods (names with an underscore) and weak copies of inline functions may come and go.
# --update writes the list anew.
set -eu
build=$1 scratch=$2
list=$(dirname "$(realpath "$0")")/exports.list
library=$build/lib/libmailserver-domain.so.1

nm -D --defined-only "$library" | awk '$2 != "A"' | c++filt >"$scratch/symbols"
cut -d' ' -f2- "$scratch/symbols" |
  grep -vE '^[A-Za-z] ((typeinfo|typeinfo name|vtable|guard variable) for |vtable for )?(MDOMAIN::|BCC::|MimeDefang(::|$)|korvmailserver::(LogException(::|$)|ErrorText\()|internal::(isAlias|GetBccToConfigValue))' \
    >"$scratch/foreign" || true
if [ -s "$scratch/foreign" ]; then
  echo "exported, and not the library's to export:"
  cat "$scratch/foreign"
  exit 1
fi

cut -d' ' -f2- "$scratch/symbols" | grep -v '^[Wu] ' | cut -d' ' -f2- |
  sed -e 's/std::__cxx11::/std::/g' -e 's/\[abi:cxx11\]//g' \
      -e 's/std::basic_string<char, std::char_traits<char>, std::allocator<char> >/std::string/g' |
  grep -v '::_' | LC_ALL=C sort -u >"$scratch/exports"
if [ "${3:-}" = --update ]; then
  cp "$scratch/exports" "$list"
fi
[ "$(wc -l <"$scratch/exports")" -gt 100 ] || { echo "hardly anything is exported"; exit 1; }
if ! diff -u "$list" "$scratch/exports"; then
  echo "the interface changed: if that is meant, run $0 $build SCRATCH --update and commit the list"
  exit 1
fi
