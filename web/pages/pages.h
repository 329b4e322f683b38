// The pages and forms of each path of the table of routes.
#ifndef MDOMAIN_WEB_PAGES_PAGES_H
#define MDOMAIN_WEB_PAGES_PAGES_H

#include "web/asked.h"
#include "web/routes.h"

namespace mdomain_web::pages {

// home.cpp
Shown Home(const Asked& asked);
Shown Own(const Asked& asked);
// domain.cpp
Shown NewDomain(const Asked& asked);
Change CreateDomain(const Asked& asked);
Shown DomainPage(const Asked& asked);
Change SetDomain(const Asked& asked);
Change DeleteDomain(const Asked& asked);
Change SetNames(const Asked& asked);
Json::Value DomainNow(const Asked& asked);
Json::Value NamesNow(const Asked& asked);
Json::Value WholeDomainNow(const Asked& asked);
// people.cpp
Shown People(const Asked& asked);
Shown AddPeoplePage(const Asked& asked);
Change AddPeople(const Asked& asked);
Shown PersonPage(const Asked& asked);
Change SetPerson(const Asked& asked);
Json::Value PersonNow(const Asked& asked);
Change RemovePerson(const Asked& asked);
// groups.cpp
Shown Groups(const Asked& asked);
Shown GroupPage(const Asked& asked);
Change SetGroup(const Asked& asked);
Change RemoveGroup(const Asked& asked);
Change RestoreMembers(const Asked& asked);
// entries.cpp
Shown Entries(const Asked& asked);
Shown EntryPage(const Asked& asked);
Change CreateEntry(const Asked& asked);
Change SetEntry(const Asked& asked);
Json::Value EntryNow(const Asked& asked);
Change DeleteEntry(const Asked& asked);
// copies.cpp
Shown Copies(const Asked& asked);
Change AddCopy(const Asked& asked);
Change RemoveCopy(const Asked& asked);
// disclaimers.cpp
Shown Disclaimers(const Asked& asked);
Shown NewDisclaimer(const Asked& asked);
Shown DisclaimerPage(const Asked& asked);
Shown PreviewDisclaimer(const Asked& asked);
Change SetDisclaimer(const Asked& asked);
Json::Value DisclaimerNow(const Asked& asked);
Change DeleteDisclaimer(const Asked& asked);
// tokens.cpp
Shown TokensPage(const Asked& asked);
Shown MakeToken(const Asked& asked);
Shown RevokeToken(const Asked& asked);
// asking.cpp
Shown Explain(const Asked& asked);
Shown Doctor(const Asked& asked);
Shown TryPattern(const Asked& asked);
// upkeep.cpp
Shown History(const Asked& asked);
Shown HistoryEntry(const Asked& asked);
Change Undo(const Asked& asked);
// refresh.cpp
Shown Refreshing(const Asked& asked);
Change Refresh(const Asked& asked);
Shown Published(const Asked& asked);
Change Publish(const Asked& asked);
// picture.cpp
Shown Picture(const Asked& asked);
// titles.cpp
std::string TitleOf(const Shown& shown);
// again.cpp
// The form of the route as it was sent, after an error; of a deletion what was changed meanwhile.
// Throws NotFound when what it is about is gone.
Shown AskAgain(const Asked& asked, const Route& route, const Json::Value& error);
// Hidden fields of a form: its version and what stood in it, from what `now` of its route gave, so
// that AskAgain tells what somebody else changed from what the writer changed.
Json::Value MadeFrom(const Json::Value& now);
// The same as the request has it.
Json::Value MadeFrom(const Asked& asked);

// A page about a domain: its data has "domain" and "is_TAB".
Shown OfDomain(const Asked& asked, const std::string& page, const std::string& tab);
// The domain that the query of a page about all of them names, whose name is "of" of its data.
std::optional<std::uint32_t> NarrowToDomain(const Asked& asked, Shown& shown);
// {"domain": the number of the path}
Json::Value DomainArgument(const Asked& asked);
std::string DomainPath(const Asked& asked, const std::string& rest = "");
Json::Value JsonOf(const std::vector<std::string>& texts);
// A text for a field with a line for each.
std::string TextOf(const Json::Value& lines);
// Throws CallFailed with a text of this program, about a value that was typed.
[[noreturn]] void Fail(const std::string& reason, const std::string& text,
                       const std::string& value);
// What the mirror calls the account of a number, or with "list_account_groups" the group; "" where
// it has none. find_account would rather find one who has that number as a name.
std::string NameOf(const Asked& asked, std::uint32_t id, const char* list = "list_accounts");
// Of a whole list the part that the query's cursor asks for; the page links to what follows.
Json::Value PartOf(const Asked& asked, const Json::Value& all, Shown& shown);
// A role or a state of the library in words.
std::string InWords(const std::string& word);
// Seconds since 1970 as people write them, in the time of the host.
std::string Moment(long long seconds);
// "&NAME=VALUE" for a link.
std::string Parameter(const std::string& name, const std::string& value);
// The link to what follows a page of a list, with what the list was asked for; "" at its end.
std::string NextPage(const Json::Value& list, const std::string& parameters = "");

}  // namespace mdomain_web::pages

#endif  // MDOMAIN_WEB_PAGES_PAGES_H
