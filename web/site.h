// The whole site: signs people in, finds the page of a path, shows what a form would change before
// it does it, and answers what goes wrong.
#ifndef MDOMAIN_WEB_SITE_H
#define MDOMAIN_WEB_SITE_H

#include <httplib.h>

#include <optional>
#include <string>

#include "web/api/api.h"
#include "web/identity/throttle.h"
#include "web/identity/visits.h"
#include "web/model/first_come.h"
#include "web/routes.h"
#include "web/settings.h"

namespace mdomain_web {

class Site final {
 public:
  // `tokens` is the file of the tokens.
  Site(const Settings& settings, const std::string& tokens);

  // May be called by several threads at once.
  void Answer(const httplib::Request& request, httplib::Response& response);

 private:
  struct Guest;

  std::optional<Guest> _WhoAsks(const httplib::Request& request, httplib::Response& response);
  void _Dispatch(const httplib::Request& request, httplib::Response& response);
  void _SignIn(const httplib::Request& request, httplib::Response& response);
  Shown _TryPassword(const httplib::Request& request, httplib::Response& response);
  void _AnswerGuest(const httplib::Request& request, httplib::Response& response, Guest& guest);
  Shown _Changed(const Asked& asked, const Change& change, const Guest& guest);
  void _Show(httplib::Response& response, const Shown& shown, const Guest* guest);
  void _SetCookie(httplib::Response& response, const std::string& key) const;
  std::optional<Person> _Find(const std::string& account) const;

  const Settings settings_;
  Visits visits_;
  Throttle throttle_;
  Tokens tokens_;
  FirstCome first_come_;
  Api api_;
  Refresher refresher_;
};

}  // namespace mdomain_web

#endif  // MDOMAIN_WEB_SITE_H
