#include "lib-domain/insight/fitting_disclaimers.h"

#include <algorithm>

#include "lib-domain/api/mimedefang.h"
#include "lib-domain/base/text.h"
#include "lib-domain/db/user.h"
#include "lib-domain/insight/address_pattern.h"
#include "lib-domain/insight/reading.h"

namespace MDOMAIN::INSIGHT {

namespace {

class Somebody {
 public:
  Somebody(std::optional<unsigned int> uid, const std::vector<std::string>& addresses) : uid_(uid) {
    std::transform(addresses.begin(), addresses.end(), std::back_inserter(addresses_),
                   ComparedForm);
  }

  bool IsNamedBy(const Json::Value& rule) {
    const std::string type = rule["pattern_type"].asString();
    const std::string pattern = rule["pattern"].asString();
    if (type == "email") {
      const std::string form = ComparedForm(pattern);
      return std::any_of(addresses_.begin(), addresses_.end(),
                         [&form](const std::string& address) { return Fits(form, address); });
    }
    unsigned int id = 0;
    if (!uid_ || !BASE::ConvertToUID(pattern, id)) {
      return false;
    }
    return type == "uid" ? id == *uid_ : type == "gid" && _IsMember(id);
  }

 private:
  bool _IsMember(unsigned int gid) {
    if (!gids_) {
      gids_.emplace();
      RequireRead(DB::User().FindBelongingGroups(*uid_, *gids_), "the groups of the user");
    }
    return std::find(gids_->begin(), gids_->end(), gid) != gids_->end();
  }

  std::optional<unsigned int> uid_;
  std::vector<std::string> addresses_;
  std::optional<std::vector<unsigned int>> gids_;
};

}  // namespace

bool AddFittingDisclaimers(int domain_idx, std::optional<unsigned int> uid,
                           const std::vector<std::string>& addresses,
                           std::vector<mdomain::FittingDisclaimer>& disclaimers) {
  Json::Value list;
  if (MimeDefang().GetDisclaimerList(domain_idx, list) < 0) {
    return false;
  }
  Somebody somebody(uid, addresses);
  for (const Json::Value& disclaimer : list) {
    if (disclaimer["enabled"] != Json::Value(true)) {
      continue;
    }
    mdomain::FittingDisclaimer fitting;
    fitting.domain = domain_idx;
    fitting.id = disclaimer["id"].isInt() ? disclaimer["id"].asInt() : 0;
    fitting.name = disclaimer["name"].asString();
    for (const Json::Value& rule : disclaimer["match_rule_list"]) {
      bool& fits = rule["target"] == "sender" ? fitting.fits_sender : fitting.fits_recipient;
      fits = fits || somebody.IsNamedBy(rule);
    }
    if (fitting.fits_sender || fitting.fits_recipient) {
      disclaimers.push_back(std::move(fitting));
    }
  }
  return true;
}

}  // namespace MDOMAIN::INSIGHT
