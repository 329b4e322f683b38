#!/bin/bash
# Includes point one way, folder by folder: a line below may include the lines above it, never one
# that stands below or beside it. lib-domain/utils has three floors; its units are rooms of their own.
set -eu
cd "$(dirname "$0")/../.."
# The pages know sessions alone, and what everybody needs.
beside=$(grep -rE '^ *#include "(lib-domain|platform|tools)/' web |
  grep -vE '"(lib-domain/session/mdomain\.h|lib-domain/base/json_text\.h|platform/include/(digest|root_path|text)\.h)"' || true)
[ -z "$beside" ] || { echo "$beside" && exit 1; }
floors='platform/include
lib-domain/base
lib-domain/utils/domain_utils+lib-domain/utils/domain_utils_internal lib-domain/utils/domain_backend_related
lib-domain/record
lib-domain/db lib-domain/accounts
lib-domain/utils/default_alias_getter
lib-domain/control
lib-domain/sync+lib-domain/utils/updater
lib-domain/api
lib-domain/api/bcc lib-domain/api/disclaimer
lib-domain/history
lib-domain/insight
lib-domain/document
lib-domain/session
tools/mdomain tools/korv_bcc_map'
grep -rE '^ *#include "(lib-domain|platform|tools)/' lib-domain tools platform |
  sed -E 's/^([^:]*): *#include "([^"]*)".*/\1 \2/' |
  awk -v floors="$floors" '
    function room(file) {  # a unit of utils, else the folder
      sub(file ~ /^lib-domain\/utils\// ? "\\.[a-z]+$" : "/[^/]*$", "", file)
      return file
    }
    BEGIN {
      n = split(floors, lines, "\n")
      for (i = 1; i <= n; i++) for (k = split(lines[i], rooms, " "); k > 0; k--)
        for (j = split(rooms[k], units, "+"); j > 0; j--) { floor[units[j]] = i; name[units[j]] = rooms[k] }
    }
    { from = room($1); to = room($2) }
    from == to { next }
    from ~ /^platform\// { if (to !~ /^platform\//) { bad = 1; print $1 " includes " $2 }; next }
    !(from in floor) || !(to in floor) { bad = 1; print $1 " includes " $2 ": no floor"; next }
    name[from] != name[to] && floor[from] <= floor[to] { bad = 1; print $1 " includes " $2 }
    END { exit bad }'
