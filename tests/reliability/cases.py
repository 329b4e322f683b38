"""A small company with something of every kind in it, and every command that changes it."""
import json
from typing import Callable, NamedTuple, Sequence

from host import DATABASE, ETC, GROUP, PASSWD, REGISTRY, Host

DISCLAIMERS = [{
    "id": 7, "name": "one", "enabled": True, "op": "or", "disabled_for_local_recipient": False,
    "match_rule_list": [{"target": "sender", "pattern_type": "uid", "pattern": "1003"},
                        {"target": "recipient", "pattern_type": "gid", "pattern": "2001"}],
    "exception_rule_list": [], "content_html": "<p>Zoë</p>", "content_txt": "Zoë"}]
ALIASES = """create table alias_table(name TEXT NOT NULL, domain_id INTEGER NOT NULL,
      PRIMARY KEY(domain_id, name));
    create table alias_member_table(alias TEXT NOT NULL, domain_id INTEGER NOT NULL,
      kind TEXT NOT NULL, member TEXT NOT NULL, PRIMARY KEY(domain_id, alias, kind, member));
    insert into alias_table values('info', 1), ('info', 2);
    insert into alias_member_table values('info', 1, 'user', 'ben'), ('info', 2, 'user', 'ben'),
      ('info', 2, 'group', 'sales');"""


def company(build, root):
    host = Host(build, root).create()
    host.write("list.json", json.dumps(DISCLAIMERS))
    host.write("rules", "erik ben\nuser anna\n")
    for words in ("domain create example.com", "domain create example.net --pattern <4a>",
                  "domain names add example.com example.org",
                  "domain create closed.example --no-auto-add", "refresh",
                  "group add 1 sales books", "group add 2 sales", "user add 3 erik ben",
                  "user set 2 ben --add-alias b.two",
                  "bcc add 1 anna ben", "bcc add 2 anna ben --type sender", "bcc add 2 ben erik",
                  "bcc add 3 erik ben",
                  "disclaimer set 1 list.json", "disclaimer set 2 list.json",
                  "config set enable_dkim_sign-2 yes", "config set dkim_selector-2 s1",
                  "owner build", "bcc maps"):
        host.good(*words.split())
    host.sql(ETC + "alias.db", ALIASES)
    for half in ("private", "public"):
        host.write(f"{ETC}dkim.key/dkim.{half}-2", half)
    return host


def older_schema(host):
    """As the first version left it; its view is replaced by every later one."""
    host.sql(DATABASE, """PRAGMA user_version = 1; DROP INDEX IDX_domain_table_domain_name;
        DROP INDEX IDX_domain_to_additional_domain_table_additional_domain;
        DROP INDEX IDX_domain_user_alias_table_account_alias; DROP VIEW domain_view;
        CREATE VIEW domain_view AS SELECT *, 0 AS is_duplicated_alias_exist FROM domain_table""")


def comers_and_goers(host):
    host.write("etc/passwd", PASSWD.replace("ben:x:1002:2001", "bernd:x:1006:2003")
               .replace("erika:", "erica:"))
    host.write("etc/group", GROUP.replace("interns:x:2003", "guests:x:2004"))


def changed_document(host):
    """Something of every kind comes, changes and goes."""
    document = json.loads(host.good("export").out)
    domains = {domain["name"]: domain for domain in document["domains"]}
    document["domains"].remove(domains["closed.example"])
    first, second = domains["example.com"], domains["example.net"]
    first.update(description="changed", names=["example.info"], copies=[])
    first["disclaimers"][0]["content_txt"] = "Ciao"
    second.update(primary=True, groups=[], removed=[], disclaimers=[])
    first["primary"] = False
    second["users"] = [{**user, "role": "normal"} for user in second["users"] if user["name"] != "anna"]
    second["users"][0]["aliases"].append("new")
    second["entries"] = [{"name": "team", "users": ["anna"], "addresses": ["info@example.com"]}]
    host.write("changed.json", json.dumps(document))


class Case(NamedTuple):
    words: str
    prepare: Sequence[str] | Callable[[Host], None] = ()  # commands, or a function
    program: str = "mdomain"

    def ready(self, company_host, root):
        host = company_host.copy(root)
        if callable(self.prepare):
            self.prepare(host)
        else:
            for words in self.prepare:
                host.good(*words.split())
        return host

    def run(self, host, before=()):
        return host.run(*self.words.split(), before=before, program=self.program)


CASES = [
    Case("domain create fourth.example --description new"),
    Case("domain create fourth.example --primary"),
    Case("domain create first.example", lambda host: host.remove() or host.create()),
    Case("domain set 2 --name other.example --pattern <1g>.<s> --description changed"),
    Case("domain delete 2 --yes"),
    Case("domain names add 2 a.example b.example"),
    Case("domain names set 1 c.example"),
    Case("domain primary 2"),
    Case("user add 3 anna user"),
    Case("user set 2 ben --role domain_admin --alias chief --alias anna"),
    Case("user remove 2 ben --yes"),
    Case("group set 2 sales --role domain_admin"),
    Case("group remove 1 sales --yes"),
    Case("refresh", comers_and_goers),
    Case("domain set 1 --description upgraded", older_schema),
    Case("bcc add 1 user ben"),
    Case("bcc import 1 rules"),
    Case("bcc remove 2 anna --type sender --yes"),
    Case("disclaimer set 3 list.json"),
    Case("disclaimer remove 2 7 --yes"),
    Case("owner build", ["user set 1 anna --add-alias new"]),
    Case("owner build", lambda host: host.sql(REGISTRY, """INSERT INTO local_part
        WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 2000)
        SELECT 'row' || i, 1, 'ghost' FROM n""")),  # all of it is written
    Case("bcc maps", ["bcc add 1 user ben"]),
    Case("", ["bcc add 1 user ben"], "korv_bcc_map"),
    Case("publish", lambda host: host.sql(ETC + "keystore.db", "delete from key_table where name"
                                          " like 'virtual_%' or name like 'additional_%'")),
    Case("config set mail_size 10 --force"),
    Case("alias create 3 team --user anna --group sales"),
    Case("alias delete 2 info --yes", ["user set 2 erik --add-alias chief"]),
    Case("apply changed.json --yes", changed_document),
    Case("undo --yes", ["disclaimer set 3 list.json", "alias create 3 team --user anna",
                        "domain delete 3 --yes"]),
    Case("undo --yes", ["alias create 3 team --user erik", "user remove 3 erik --yes"]),
]
