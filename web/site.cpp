#include "web/site.h"

#include <syslog.h>

#include <algorithm>

#include "web/identity/password.h"
#include "web/identity/secrets.h"
#include "web/pages/pages.h"
#include "web/view/files.h"
#include "web/view/page.h"
#include "web/view/texts.h"

namespace mdomain_web {

namespace {

using httplib::Request;
using httplib::Response;

constexpr int kReloadSeconds = 3;
constexpr std::size_t kLongestName = 256;
constexpr std::size_t kLongestPassword = 1024;

std::string CookieName(const Settings& settings) {
  return settings.IsHttps() ? "__Host-mdomain" : "mdomain";
}

std::string CookieOf(const Request& request, const std::string& name) {
  const std::string cookies = "; " + request.get_header_value("Cookie");
  const std::size_t begin = cookies.find("; " + name + "=");
  if (begin == std::string::npos) {
    return "";
  }
  const std::size_t value = begin + name.size() + 3;
  return cookies.substr(value, cookies.find(';', value) - value);
}

// Where the request came from, as the one in front tells; itself only on loopback and a socket.
std::string AddressOf(const Request& request) {
  const std::string forwarded = request.get_header_value("X-Forwarded-For");
  const std::size_t last = forwarded.find_last_of(", ");
  const std::string address = last == std::string::npos ? forwarded : forwarded.substr(last + 1);
  return address.empty() ? request.remote_addr : address.substr(0, 64);
}

bool IsChange(const Request& request) {
  return request.method != "GET" && request.method != "HEAD";
}

// Browsers say which site a form came from; other programs say nothing, and have no cookie.
bool IsFromHere(const Request& request, const Settings& settings) {
  const std::string site = request.get_header_value("Sec-Fetch-Site");
  const std::string origin = request.get_header_value("Origin");
  return (site.empty() || site == "same-origin" || site == "none") &&
         (origin.empty() || settings.url.empty() || origin == settings.url);
}

bool SendFile(const std::string& path, Response& response) {
  const std::string* text = FindFile(path.substr(1));
  if (text == nullptr) {
    return false;
  }
  response.set_header("Cache-Control", "max-age=300");
  const bool is_style = path.size() > 4 && path.compare(path.size() - 4, 4, ".css") == 0;
  response.set_content(*text,
                       is_style ? "text/css; charset=utf-8" : "text/javascript; charset=utf-8");
  return true;
}

Shown Problem(int status, const std::string& title, const Json::Value& error = Json::Value()) {
  Shown shown{"problem"};
  shown.status = status;
  shown.data["title"] = title;
  if (error.isObject()) {
    shown.data["error"] = error;
  }
  return shown;
}

Shown Problem(const CallFailed& failed) {
  const std::string reason = failed.error["reason"].asString();
  const int status = reason == "not-found" ? 404
                     : reason == "changed" ? 412
                     : reason == "busy"    ? 503
                     : reason == "failed"  ? 500
                     : reason == "refused" ? 403
                                           : 400;
  Shown shown = Problem(status, Tr("This cannot be done"), failed.error);
  if (status == 503) {
    shown.data["title"] = Tr("Please wait");
    shown.data["reload"] = kReloadSeconds;
  }
  return shown;
}

// What was typed is not lost where it can be mended.
Shown Refused(const Asked& asked, const Route& route, const CallFailed& failed) {
  Shown problem = Problem(failed);
  const bool can_be_mended =
      problem.status == 400 || problem.status == 404 || problem.status == 412;
  if (route.form == nullptr || *route.fields == '\0' || !can_be_mended) {
    return problem;
  }
  try {
    Shown again = pages::AskAgain(asked, route, problem.data["error"]);
    again.status = problem.status;
    return again;
  } catch (const NotFound&) {
  } catch (const CallFailed&) {
  }
  return problem;
}

// Who knows the password is told why it does not do; nobody else learns anything of the account.
std::string Refusal(Checked::Outcome outcome) {
  switch (outcome) {
    case Checked::Outcome::kRight:
      return Tr(
          "The mail domains do not know this account. A new one comes in with the next refresh.");
    case Checked::Outcome::kMustChange:
      return Tr(
          "This password has to be changed before you can sign in, which these pages cannot do.");
    case Checked::Outcome::kShutOut:
      return Tr(
          "This account has ended or is locked. The administrator of the host can tell more.");
    default:
      return Tr("Name or password are wrong.");
  }
}

// A try of a password, which ends however it is left.
struct Throttled {
  Throttled(Throttle& of, const std::string& tried, const std::string& from)
      : throttle(of), name(tried), address(from) {}
  ~Throttled() { throttle.End(name, address, outcome); }
  Throttled(const Throttled&) = delete;
  Throttled& operator=(const Throttled&) = delete;

  Throttle& throttle;
  const std::string& name;
  const std::string& address;
  Throttle::Outcome outcome = Throttle::Outcome::kUnknown;
};

}  // namespace

struct Site::Guest {
  Visit visit;
  std::string key;
  bool by_proxy = false;
};

Site::Site(const Settings& settings, const std::string& tokens)
    : settings_(settings),
      visits_({std::chrono::minutes(settings.idle_minutes),
               std::chrono::hours(settings.longest_hours), std::chrono::minutes(10)}),
      tokens_(tokens),
      api_(tokens_, first_come_, [this](const std::string& account) { return _Find(account); }) {}

void Site::Answer(const Request& request, Response& response) {
  const ReaderLanguage language(request.get_header_value("Accept-Language"));
  response.set_header(
      "Content-Security-Policy",
      "default-src 'none'; style-src 'self'; script-src 'self'; img-src 'self'; "
      "connect-src 'self'; form-action 'self'; frame-ancestors 'none'; base-uri 'none'");
  response.set_header("X-Content-Type-Options", "nosniff");
  response.set_header("Referrer-Policy", "same-origin");
  response.set_header("Cross-Origin-Opener-Policy", "same-origin");
  if (settings_.IsHttps()) {  // browsers heed it where they trust the certificate
    response.set_header("Strict-Transport-Security", "max-age=31536000");
  }
  if (response.status < 400 && !IsChange(request) && request.path.compare(0, 8, "/static/") == 0 &&
      SendFile(request.path, response)) {
    return;
  }
  response.set_header("Cache-Control", "no-store");
  if (response.status >= 400 && !Api::IsAsked(request)) {  // the parser's own answer
    _Show(response,
          Problem(response.status, response.status >= 500
                                       ? Tr("This went wrong here; the log has more")
                                       : Tr("The request cannot be read")),
          nullptr);
    return;
  }
  try {
    _Dispatch(request, response);
  } catch (const CallFailed& failed) {  // whose account it is could not be asked
    _Show(response, Problem(failed), nullptr);
  }
}

void Site::_Dispatch(const Request& request, Response& response) {
  if (Api::IsAsked(request)) {
    api_.Answer(request, response);
    return;
  }
  if (IsChange(request) && !IsFromHere(request, settings_)) {
    _Show(response, Problem(403, Tr("The form comes from another site")), nullptr);
    return;
  }
  if (request.path == "/sign-in") {
    _SignIn(request, response);
    return;
  }
  std::optional<FirstCome::Place> place;
  const std::string named =
      settings_.header.empty() ? "" : request.get_header_value(settings_.header);
  if (!named.empty()) {  // whose account that is may have to be asked
    place.emplace(first_come_, named);
  }
  std::optional<Guest> guest = _WhoAsks(request, response);
  if (!guest) {
    response.status = 303;
    response.set_header("Location", "/sign-in");
    return;
  }
  if (!place) {
    place.emplace(first_come_, guest->visit.person.account);
  }
  _AnswerGuest(request, response, *guest);
}

std::optional<Person> Site::_Find(const std::string& account) const {
  Json::Value arguments;
  arguments["text"] = account;
  const Json::Value found = Calls::OfHost("")("find_account", arguments);
  // The model finds by short names and by numbers, too, and follows one account source; the host
  // may have another account of that name.
  const auto uid = found.isNull() ? std::nullopt : UidOf(account);
  if (found.isNull() || (uid ? *uid != found["id"].asUInt() : NumberIn(account).has_value())) {
    return std::nullopt;
  }
  return Person{found["id"].asUInt(), found["name"].asString(), account,
                IsInGroup(account, settings_.administrators)};
}

std::optional<Site::Guest> Site::_WhoAsks(const Request& request, Response& response) {
  const std::string key = CookieOf(request, CookieName(settings_));
  std::optional<Visits::Found> found = visits_.Find(key);
  if (!settings_.header.empty()) {
    const std::string name = request.get_header_value(settings_.header);
    if (found && found->visit.person.account != name) {
      visits_.End(key);
      found.reset();
    }
    if (!found && !name.empty()) {
      if (const auto person = _Find(name)) {
        found = visits_.Find(visits_.Begin(*person));
      }
    }
  }
  if (!found) {
    return std::nullopt;
  }
  if (found->key != key) {
    _SetCookie(response, found->key);
  }
  found->visit.person.is_host_administrator =
      IsInGroup(found->visit.person.account, settings_.administrators);
  return Guest{found->visit, found->key, !settings_.header.empty()};
}

void Site::_SignIn(const Request& request, Response& response) {
  Shown shown{"sign_in"};
  if (!settings_.header.empty()) {
    shown = Problem(403, Tr("The server in front signs people in, and named nobody"));
  } else if (request.method == "POST") {
    shown = _TryPassword(request, response);
  }
  _Show(response, shown, nullptr);
}

Shown Site::_TryPassword(const Request& request, Response& response) {
  const std::string given = request.get_param_value("name");
  const std::string name = given.substr(0, kLongestName);
  const std::string password = request.get_param_value("password");
  const std::string address = AddressOf(request);
  Shown shown{"sign_in"};
  const auto wait = throttle_.Begin(name, address);
  if (wait.count() > 0) {
    shown.status = 429;
    shown.data["wait"] = static_cast<Json::Int64>(wait.count());
    response.set_header("Retry-After", std::to_string(wait.count()));
    return shown;
  }
  Throttled trying(throttle_, name, address);
  Checked checked;
  if (given.size() <= kLongestName && password.size() <= kLongestPassword) {
    checked = CheckPassword(settings_.service, name, password, address);
  }
  const bool is_right = checked.outcome == Checked::Outcome::kRight;
  const auto person = is_right ? _Find(checked.account) : std::nullopt;
  if (person) {
    trying.outcome = Throttle::Outcome::kSucceeded;
    visits_.End(CookieOf(request, CookieName(settings_)));
    _SetCookie(response, visits_.Begin(*person));
    syslog(LOG_AUTHPRIV | LOG_INFO, "%s signed in from %s", person->name.c_str(), address.c_str());
    return GoTo("/");
  }
  if (checked.outcome == Checked::Outcome::kNotAsked) {
    return Problem(503, Tr("Nobody can sign in at the moment; the log of the host has more"));
  }
  if (checked.outcome == Checked::Outcome::kWrong) {
    trying.outcome = Throttle::Outcome::kFailed;
    syslog(LOG_AUTHPRIV | LOG_NOTICE, "a sign-in failed from %s", address.c_str());
  } else if (is_right) {
    syslog(LOG_AUTHPRIV | LOG_NOTICE, "%s may not sign in: no account of the mail domains",
           checked.account.c_str());
  }
  shown.status = 403;
  shown.data["refusal"] = Refusal(checked.outcome);
  return shown;
}

void Site::_AnswerGuest(const Request& request, Response& response, Guest& guest) {
  if (IsChange(request) && !IsSame(request.get_param_value("form_key"), guest.visit.form_key)) {
    _Show(response, Problem(403, Tr("The form is too old: go back, load the page again")), &guest);
    return;
  }
  if (IsChange(request) && request.path == "/sign-out") {
    visits_.End(guest.key);
    _Show(response, GoTo("/sign-in"), nullptr);
    return;
  }
  Shown shown = Problem(404, Tr("There is no such page"));
  const Person& person = guest.visit.person;
  for (const Route& route : Routes()) {
    auto at = Match(route.path, request.target);
    if (!at || route.method != (IsChange(request) ? request.method : "GET")) {
      continue;
    }
    const Asked asked{
        request, std::move(*at),
        person,  person.is_host_administrator ? Calls::OfHost(person.name) : Calls::As(person.uid),
        tokens_, refresher_};
    try {
      shown = route.page != nullptr ? route.page(asked) : _Changed(asked, route.form(asked), guest);
    } catch (const NotFound&) {
    } catch (const CallFailed& failed) {
      shown = Refused(asked, route, failed);
    }
    break;
  }
  _Show(response, shown, &guest);
}

// Twice the same form: first it shows what would change, then, confirmed, it is done.
Shown Site::_Changed(const Asked& asked, const Change& change, const Guest& guest) {
  if (!asked.Has("confirmed")) {
    Shown shown{"plan"};
    Json::Value arguments = change.arguments;
    arguments["dry_run"] = true;
    shown.data["plan"] = asked.calls(change.call, arguments);
    shown.data["path"] = asked.request.target.substr(0, asked.request.target.find('?'));
    shown.data["back"] = change.go_to;
    for (const auto& [name, value] : asked.request.params) {
      Json::Value field;
      field["name"] = name;
      field["value"] = WithLineEnds(value);
      if (name != "form_key") {
        shown.data["fields"].append(field);
      }
    }
    return shown;
  }
  if (change.in_background) {
    refresher_.Start(asked.calls);
    return GoTo(change.go_to);
  }
  const Json::Value answer = asked.calls.Answer(change.call, change.arguments);
  if (!answer.isMember("value")) {
    throw CallFailed(answer["error"]);
  }
  visits_.Notify(guest.key, answer["published"].asBool()
                                ? change.done
                                : change.done + " (" + answer["error"]["text"].asString() + ")");
  return GoTo(change.go_to);
}

void Site::_Show(Response& response, const Shown& shown, const Guest* guest) {
  if (!shown.go_to.empty()) {
    response.status = 303;
    response.set_header("Location", shown.go_to);
    return;
  }
  Json::Value data = shown.data;
  data["page_title"] = pages::TitleOf(shown);
  if (guest != nullptr) {
    data["guest"]["name"] = guest->visit.person.name;
    data["guest"]["is_host_administrator"] = guest->visit.person.is_host_administrator;
    data["guest"]["signs_out"] = !guest->by_proxy;
    data["form_key"] = guest->visit.form_key;
    data["notice"] = visits_.TakeNotice(guest->key);
  }
  response.status = shown.status;
  response.set_content(RenderPage(shown.name, data), "text/html; charset=utf-8");
}

void Site::_SetCookie(Response& response, const std::string& key) const {
  response.set_header("Set-Cookie", CookieName(settings_) + "=" + key +
                                        "; Path=/; HttpOnly; SameSite=Strict" +
                                        (settings_.IsHttps() ? "; Secure" : ""));
}

}  // namespace mdomain_web
