// mdomain import: another mail administration as the document that mdomain apply takes.
#include <cerrno>
#include <cstring>

#include "lib-domain/api/export_file.h"
#include "lib-domain/document/words.h"
#include "tools/mdomain/command.h"
#include "tools/mdomain/domain_name.h"
#include "tools/mdomain/foreign_sources.h"
#include "tools/mdomain/notes.h"
#include "tools/mdomain/text.h"

namespace mdomain {
namespace {

constexpr int kFirstUid = 1000;
constexpr int kLastUid = 60000;

void WriteDocument(Call& call, ForeignMail mail, const ImportChoice& choice) {
  const std::string text = JsonText(MDOMAIN::DOCUMENT::SiteJson(MakeForeignSite(mail, choice)));
  const std::string file = call.Text("--output");
  if (file.empty()) {
    call.out().Raw(text);
  } else if (MDOMAIN::API::INTERNAL::WriteExport(file, text) < 0) {
    throw Failure(kFailed, file + " could not be written: " + std::strerror(errno));
  }
  for (const std::string& sentence : mail.left_out) {
    Note("left out: " + sentence);
  }
}

std::string ListOfAccounts(const Call& call) {
  return call.Has("--accounts") ? ReadForeignFile(call.Text("--accounts")) : "";
}

void ImportPostfixAdmin(Call& call) {
  const std::string form = call.Has("--account-form") ? call.Text("--account-form") : "%u";
  const AccountOfMailbox accounts(form, ListOfAccounts(call), call.Text("--accounts"));
  WriteDocument(call, ReadPostfixAdmin(call.Text("FILE"), call.Text("--table-prefix"), accounts),
                {call.Text("--primary"), call.Has("--share-accounts")});
}

void ImportPasswdAliases(Call& call) {
  if (!call.Has("--domain")) {
    throw Failure(kUsage, "--domain is required");
  }
  const std::string domain = StorableName(call.Text("--domain"));
  if (!IsDomainName(domain)) {
    throw Failure(kUsage, "--domain: \"" + domain + "\" is not a valid domain name");
  }
  const auto uid = [&call](const char* option, int fallback) {
    return static_cast<unsigned int>(call.Int(option, fallback));
  };
  WriteDocument(call,
                ReadPasswdAliases({call.Text("PASSWD"), call.Text("ALIASES"), domain,
                                   uid("--first-uid", kFirstUid), uid("--last-uid", kLastUid)}),
                {"", false});
}

const Argument kOutput =
    Option("--output", "FILE", "Where it goes, for its owner alone; without it to standard output");

const Register kImport({
    "import",
    "Another mail administration as a document for apply",
    {{"postfixadmin",
      "PostfixAdmin's domains, mailboxes and aliases, from its database",
      "Nothing is changed: mdomain apply, with --dry-run first, makes it so. Domains become "
      "domains, "
      "alias domains their names, mailboxes users, aliases of one mailbox that user's aliases, "
      "others "
      "addresses with several members. What cannot be carried is named on standard error, one by "
      "one, "
      "with the reason.",
      Effect::kReads,
      {One("FILE",
           "Its SQLite database, or a dump by mysqldump, pg_dump or sqlite3; - is standard "
           "input"),
       kOutput,
       Option("--account-form", "TEXT",
              "Which account a mailbox belongs to: %u is its local part, %d its domain; without it "
              "%u"),
       Option("--accounts", "LIST", "A file of lines \"ADDRESS ACCOUNT\", which go before that"),
       Flag("--share-accounts", "Let several mailboxes be of one account"),
       Option("--primary", "DOMAIN",
              "Which domain is the primary one; without it the first by name"),
       Option("--table-prefix", "TEXT", "What the names of its tables begin with")},
      ImportPostfixAdmin},
     {"passwd-aliases",
      "The accounts and aliases of a host that delivered local mail, as one domain",
      "Accounts become users, lines of the aliases the users' aliases or addresses with several "
      "members. Programs, files and lists in files are named on standard error and left out, as "
      "are "
      "names that lead nowhere or in a circle.",
      Effect::kReads,
      {One("PASSWD", "The accounts, in the form of /etc/passwd"),
       One("ALIASES", "The aliases, in the form of /etc/aliases"), kOutput,
       Option("--domain", "NAME", "The domain they become; needed"),
       Number("--first-uid", "Accounts below are the system's; without it 1000"),
       Number("--last-uid", "Accounts above are the system's; without it 60000")},
      ImportPasswdAliases}},
});

}  // namespace
}  // namespace mdomain
