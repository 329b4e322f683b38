#!/bin/bash
# The calls of sessions from C, C++ and Python, against the installed library.
# ctest-timeout: 300
. "$(dirname "$0")/lib/driver.bash"

logged() { "$@" >"$scratch/log" 2>&1 || { fail "$*: $(cat "$scratch/log")" && exit 1; }; }

prefix=$scratch/prefix
logged cmake --install "$build" --prefix "$prefix"
libdir=$(dirname "$(find "$prefix" -name libmailserver-domain.so)")
export LD_LIBRARY_PATH=$libdir
needs=(-I "$prefix/include" -L "$libdir" -lmailserver-domain -lmailserver-platform)
read -ra sanitizers <<<"$(sanitizer_options "$libdir/libmailserver-domain.so")"

cat >"$scratch/program.c" <<'END'
#include <mailserver-domain/mdomain.h>
#include <stdio.h>

int main(int argc, char** argv) {
  mdomain_session* session = mdomain_open("{\"person\": \"c\"}");
  for (int i = 1; i + 1 < argc; i += 2) {
    char* answer = mdomain_call(session, argv[i], argv[i + 1]);
    puts(answer);
    mdomain_free(answer);
  }
  for (int i = 0; i < 2; ++i) {
    char* answer = mdomain_call(i ? session : NULL, i ? NULL : "domains", NULL);
    if (answer == NULL) return 1;
    mdomain_free(answer);
  }
  mdomain_close(session);
  return mdomain_open("{\"unknown\": 1}") != NULL || mdomain_as(NULL, 1) != NULL;
}
END
cat >"$scratch/program.cpp" <<'END'
#include <mailserver-domain/mdomain.hpp>

#include <iostream>

int main() {
  mdomain::Session session;
  for (const mdomain::User& user : session.Users(1, {"a", mdomain::UserColumn::kName, true, 1})) {
    std::cout << user.name << " ";
  }
  const auto missing = session.GetDomain(7);
  std::cout << missing.GetError().text << "\n";
  return missing ? 1 : 0;
}
END
logged gcc -std=c99 -Wall -Wextra -Werror -pedantic "${sanitizers[@]}" "$scratch/program.c" -o "$scratch/c" "${needs[@]}"
for standard in 17 20; do
  logged g++ -std=c++$standard -Wall -Wextra -Wshadow -Werror -pedantic "${sanitizers[@]}" \
    "$scratch/program.cpp" -o "$scratch/c++$standard" "${needs[@]}"
  logged clang++ -std=c++$standard -Wall -Wextra -Wshadow -Werror -pedantic -fsyntax-only -I "$prefix/include" \
    "$scratch/program.cpp"
done

new_root company
"$scratch/c" create_domain '{"name": "bücher.example"}' refresh '' create_domain '{"name": "BÜCHER.example"}' \
  set_user '{"domain": 1, "uid": 1, "alias": []}' domains 'no' nothing '{}' \
  together '{"command": "two", "calls": [{"call": "create_domain", "arguments": {"name": "two.example"}},
    {"call": "get_domain", "arguments": {"domain": 9}}]}' find_domain '{"text": "a\u0000b"}' >"$scratch/answers" || fail "the program in C"
same "answers" "$(jq -c '[.published, .error.reason, (.error.text // "" | sub(": [*].*"; ""))]' "$scratch/answers")" \
'[true,null,""]
[null,"invalid","the arguments are no JSON"]
[null,"taken","creating \"BÜCHER.example\": the name belongs to a domain already"]
[null,"invalid","argument \"alias\" is not known"]
[null,"invalid","the arguments are no JSON"]
[null,"invalid","there is no call \"nothing\""]
[null,"not-found","there is no domain 9"]
[null,"invalid","argument \"text\" is no text"]'
"$scratch/c" refresh '{}' domains '{}' explain '{"address": "anna@xn--bcher-kva.example"}' doctor '{}' >"$scratch/answers"
same "what is there" "$(jq -c '.value | if type == "array" then map(.name // .id) else .is_complete // .receiver end' "$scratch/answers")" \
  $'true\n["bücher.example"]\n"anna"\n["postmaster","timer"]'
# What explains disclaimers without Perl says what the tool says with it.
cat >"$scratch/list.json" <<'END'
[{"id": 1, "name": "and", "enabled": true, "op": "and", "disabled_for_local_recipient": true, "match_rule_list": [
    {"target": "sender", "pattern_type": "uid", "pattern": "1001"}, {"target": "recipient", "pattern_type": "email", "pattern": "*@*.example"}]},
  {"id": 2, "name": "or", "enabled": true, "op": "or", "match_rule_list": [{"target": "sender", "pattern_type": "gid", "pattern": "2001"},
    {"target": "sender", "pattern_type": "uid", "pattern": "4711"}, {"target": "recipient", "pattern_type": "email", "pattern": "*@BÜCHER.example"}],
    "exception_rule_list": [{"target": "recipient", "pattern_type": "uid", "pattern": "1002"}]},
  {"id": 3, "name": "off", "enabled": false, "op": "or", "match_rule_list": [{"target": "sender", "pattern_type": "email", "pattern": "*"}]}]
END
good disclaimer set 1 "$scratch/list.json"
for from in "" "<Anna@bücher.example>" ben@xn--bcher-kva.example user@bücher.example anna@elsewhere.example; do
  for to in x@away.example ben@bücher.example ERIK@xn--bcher-kva.example; do
    same "from $from to $to" "$("$scratch/c" explain_disclaimers "$(jq -nc --arg from "$from" --arg to "$to" '{domain: 1, $from, $to}')" |
      jq -cS 'select(.value).value')" "$(mdomain disclaimer explain 1 --from "$from" --to "$to" --json | jq -cS 'map(del(.op))')"
  done
done
good disclaimer set 1 <(echo '[]')
before=$(sqlite3 "$MDOMAIN_ROOT/var/packages/Postara-Server/etc/local_DOMAIN.db" .dump)
"$scratch/c" remove_users '{"domain": 1, "uids": [1001], "dry_run": true}' \
  delete_domains '{"domains": [7], "dry_run": true}' create_domain '{"name": "x.example", "dry_run": 1}' \
  together '{"command": "two", "dry_run": true, "calls": [{"call": "create_domain", "arguments": {"name": "two.example"}},
    {"call": "set_setting", "arguments": {"key": "postmaster", "value": "anna"}}]}' \
  list_history '{"domain": 1, "page_size": 1}' try_pattern '{"domain": 1, "pattern": "<1a>", "page_size": 1}' \
  pattern_drift '{"domain": 1}' settings '{"all": true}' >"$scratch/answers" || fail "the program in C"
same "plans and trials" "$(jq -c 'if (.value | type) == "array" then any(.value[]; .key == "postmaster" and .is_set == false)
  else .value.summary // .error.text // .value.total // [.value | .pattern, .users, .page.total] end' "$scratch/answers")" \
'"1 person loses 1 address, 1 other thing changes"
"there is no domain 7"
"argument \"dry_run\" is neither true nor false"
"3 things change"
4
["<1a>",5,5]
["<a>",5,0]
true'
same "what plans changed" "$(sqlite3 "$MDOMAIN_ROOT/var/packages/Postara-Server/etc/local_DOMAIN.db" .dump)" "$before"
"$scratch/c" remove_users '{"domain": 1, "uids": [1001], "dry_run": true}' >"$scratch/answers"
same "the tool's plan" "$(jq -cS .value.changes "$scratch/answers")" \
  "$(mdomain --json user remove 1 1001 --dry-run -y | jq -cS .)"
for standard in 17 20; do
  same "C++$standard" "$("$scratch/c++$standard")" "$(mdomain user list 1 --query a --json |
    jq -r 'map(.name) | reverse | join(" ")') there is no domain 7"
done

# The example of docs/library.md.
page=$source_dir/docs/library.md
# block KIND N : the Nth block of the page that begins with ```KIND.
block() {
  awk -v begin="\`\`\`$1" -v wanted="$2" '
    /^```/ { inside = !inside && $0 == begin && ++seen == wanted; next }
    inside { print }' "$page"
}
for example in 1 2; do
  block cxx $example >"$scratch/page.cpp"
  logged g++ -std=c++17 -Wall -Wextra -Werror "${sanitizers[@]}" "$scratch/page.cpp" -o "$scratch/page" "${needs[@]}"
  logged g++ -std=c++20 -Wall -Wextra -Werror -fsyntax-only "$scratch/page.cpp" "${needs[@]}"
  for standard in 17 20; do
    logged clang++ -std=c++$standard -Wall -Wextra -Werror -Wno-unused-command-line-argument -fsyntax-only "$scratch/page.cpp" "${needs[@]}"
  done
  rm -rf "$scratch/company"
  new_root company
  same "the page, example $example" "$("$scratch/page")" "$(block output $example)"
done
rm -rf "$scratch/company"
new_root company
good domain create bücher.example
good refresh

# An interpreter without ThreadSanitizer cannot load what was built with it.
[ "${sanitizers[*]}" != -fsanitize=thread ] || exit 0
preload=
[ ${#sanitizers[@]} -eq 0 ] || preload="$(gcc -print-file-name=libasan.so) $(gcc -print-file-name=libubsan.so)"
cat >"$scratch/program.py" <<'END'
import threading
import mailserver_domain

session = mailserver_domain.Session(person="python")
people = {user["name"]: user for user in session.users(1, page_size=2)}
anna = people["anna"]
plan = session.set_user(domain=1, uid=anna["uid"], role="domain_admin", dry_run=True)
print(plan["summary"], session.find_user(domain=1, uid=anna["uid"])["version"] == anna["version"])
session.set_user(domain=1, uid=anna["uid"], role="domain_admin", add_aliases=["boss"], version=anna["version"])
try:
    session.set_user(domain=1, uid=anna["uid"], add_aliases=["chief"], version=anna["version"])
except mailserver_domain.Error as error:
    print(error.reason, error)
his = session.acting_as(anna["uid"])
print(his.of(uid=anna["uid"])["addresses"], session.explain_user(uid=anna["uid"])["domains"][0]["by_pattern"])
print([one["name"] for one in his.accounts(text="eri", page_size=1)])
print(len(his.domains()), session.owner(address="boss@bücher.example"), session.history(limit=1)[0]["person"])
threads = [threading.Thread(target=lambda: [session.domains() for _ in range(20)]) for _ in range(4)]
[thread.start() for thread in threads]
[thread.join() for thread in threads]
try:
    his.create_domain(name="two.example")
except mailserver_domain.Error as error:
    print(error.reason, error.text)
for uid in (2**32 + anna["uid"], -1, "1001"):
    try:
        print(session.acting_as(uid))
    except ValueError as error:
        print(error)
END
same "Python" "$(LD_PRELOAD=$preload ASAN_OPTIONS=detect_leaks=0 PYTHONPATH="$source_dir/bindings/python" \
  python3 "$scratch/program.py" 2>&1)" \
"1 thing changes True
changed anna was changed meanwhile
['anna@bücher.example', 'boss@bücher.example'] anna
['erik', 'erika']
1 anna python
refused the administrator of a domain may not create domains
4294968297 is no uid
-1 is no uid
'1001' is no uid"
