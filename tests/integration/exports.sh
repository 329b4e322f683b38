#!/bin/bash
# exports.sh BUILD_DIR SCRATCH [--update] : what the shared libraries offer to programs.
#
# Nothing but a library's own names may be exported, and the interface must be the one that is
# written down in its list: a name that is missing there breaks programs, a new one is a promise.
# Private methods (names with an underscore) and weak copies of inline functions may come and go.
# --update writes the lists anew.
set -eu
build=$1 scratch=$2 update=${3:-}
here=$(dirname "$(realpath "$0")")
kinds='((typeinfo|typeinfo name|vtable|guard variable) for )?'

# check LIBRARY LIST OWN-NAMES : OWN-NAMES is an extended regular expression.
check() {
  local symbols=$scratch/$1.symbols exports=$scratch/$1.exports list=$here/$2
  nm -D --defined-only "$build/lib/lib$1.so.1" | awk '$2 != "A"' | c++filt | cut -d' ' -f2- \
    >"$symbols"
  if grep -vE "^[A-Za-z] $kinds($3)" "$symbols" >"$scratch/foreign"; then
    echo "exported by $1, and not the library's to export:"
    cat "$scratch/foreign"
    return 1
  fi
  grep -v '^[Wu] ' "$symbols" | cut -d' ' -f2- |
    sed -e 's/std::__cxx11::/std::/g' -e 's/\[abi:cxx11\]//g' \
        -e 's/std::basic_string<char, std::char_traits<char>, std::allocator<char> >/std::string/g' |
    grep -vE '::_|^guard ' | LC_ALL=C sort -u >"$exports"
  if [ "$update" = --update ]; then
    cp "$exports" "$list"
  fi
  [ "$(wc -l <"$exports")" -gt 100 ] || { echo "$1 exports hardly anything"; return 1; }
  if ! diff -u "$list" "$exports"; then
    echo "the interface changed: if that is meant, run $0 $build SCRATCH --update and commit $2"
    return 1
  fi
}

check mailserver-domain exports.list \
  'mdomain::Session::|mdomain_(as|call|close|free|open)$|MDOMAIN::|BCC::|MimeDefang(::|$)|korvmailserver::(LogException(::|$)|ErrorText\()|internal::(isAlias|GetBccToConfigValue)'
# Without a blank before its parameters: a template's instance begins with the type it returns.
check mailserver-platform exports-platform.list \
  '(KLIB|KORV|mail|smtpAccountDomainGet|ConvertAuthType|TrimDomainName|FoldAccountName|GetFullNames|MultipleDomain::|korvmailserver::|postara::sdk::|(Alias|BatchScope|Config|DBHandler|SmtpConf)(::|$))[^ (]*(\(|$)'
