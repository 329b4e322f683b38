// The published files, by their keys. Whoever can write to the shared store would otherwise choose
// which file of every machine is replaced.
#include "platform/keystore/node_paths.h"

#include <algorithm>

namespace korvmailserver {

namespace {

enum class Form { kFixed, kDomainDatabase, kNumber };

// The key of a numbered file ends with the number that its path ends with.
struct Place {
  const char* key;
  const char* path;
  Form form;
  mode_t mode;
};

// Every published file is one that the mail services read; none is a program. The texts of
// disclaimers are theirs alone.
constexpr mode_t kRead = 0644;
constexpr mode_t kReadByGroup = 0640;

constexpr char kDatabaseEnd[] = "_DOMAIN.db";

constexpr Place kPlaces[] = {
    {"mailserver_domain_db", "/var/packages/Postara-Server/etc/", Form::kDomainDatabase, kRead},
    {"bcc_db", "/var/packages/Postara-Server/etc/mailserver.db", Form::kFixed, kRead},
    {"alias_db", "/var/packages/Postara-Server/etc/alias.db", Form::kFixed, kRead},
    {"email_owner_db", "/var/packages/Postara-Server/target/etc/email_owner.db", Form::kFixed,
     kRead},
    {"sync_disclaimer_content_file-", "/var/packages/Postara-Server/etc/disclaimer_content/domain-",
     Form::kNumber, kReadByGroup},
};

// `text` without `start`; empty when it begins otherwise.
std::string Behind(const std::string& start, const std::string& text) {
  return text.rfind(start, 0) == 0 ? text.substr(start.size()) : "";
}

// An index as it is written in decimal.
bool IsIndex(const std::string& text) {
  return !text.empty() && text.size() <= 10 && text.find_first_not_of("0123456789") == text.npos &&
         (text[0] != '0' || text == "0");
}

// A name of the account domain and "_DOMAIN.db": no other folder, nothing hidden, one line.
bool IsDatabaseName(const std::string& name) {
  const std::string end = kDatabaseEnd;
  return name.size() > end.size() && name.size() <= 255 && name[0] != '.' &&
         name.compare(name.size() - end.size(), end.size(), end) == 0 &&
         std::none_of(name.begin(), name.end(),
                      [](unsigned char byte) { return byte == '/' || byte < ' ' || byte == 0x7F; });
}

bool IsAt(const Place& place, const PublishedFile& file) {
  switch (place.form) {
    case Form::kFixed:
      return file.key == place.key && file.path == place.path;
    case Form::kDomainDatabase:
      return file.key == place.key && IsDatabaseName(Behind(place.path, file.path));
    default:
      const std::string number = Behind(place.key, file.key);
      return IsIndex(number) && file.path == place.path + number;
  }
}

}  // namespace

bool PlaceOfPublished(const PublishedFile& file, PublishedPlace& place, std::string& error) {
  const auto known = std::find_if(std::begin(kPlaces), std::end(kPlaces),
                                  [&](const Place& one) { return IsAt(one, file); });
  if (known != std::end(kPlaces)) {
    place = {file.path, known->mode};
    return true;
  }
  error = "file " + file.key + ": [" + file.path +
          "] is not where a file of this key belongs, it is not pulled";
  return false;
}

}  // namespace korvmailserver
