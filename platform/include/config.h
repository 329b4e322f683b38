// Base of settings classes: members bound to keys of the mail configuration.
#ifndef PLATFORM_CONFIG_H
#define PLATFORM_CONFIG_H

#include <map>
#include <string>

#include "platform/include/export.h"

class MDOMAIN_EXPORT Config {
 public:
  Config() = default;
  virtual ~Config() = default;
  // Reads the keys of all bound members with one query. A member whose key is not stored, or is
  // neither "yes" nor "no", stays as it is: on a new object, the default given to AddToBoolMap. 0;
  // or negative with one log line and no member changed.
  virtual int LoadSettings();
  // Writes every bound member ("yes" or "no"), all or none; unchanged values are not written again.
  // 0, or negative with one log line.
  virtual int SaveSettings();

 protected:
  Config(const Config&) = default;
  Config& operator=(const Config&) = default;
  // Binds `member` to `key` and sets it to `default_value`. The member must live as long as the
  // object.
  void AddToBoolMap(const std::string& key, bool* member, bool default_value);

 private:
  std::map<std::string, bool*> bools_;
};

#endif  // PLATFORM_CONFIG_H
