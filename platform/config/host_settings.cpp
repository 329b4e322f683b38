// Reads /etc/mailserver-domain/host.ini with inih: one table of keys, one text per error.
//
// inih tells its callback no line numbers unless it was compiled to, so the lines are handed to it
// one by one and counted. Leading blanks are taken away on the way: inih would read an indented
// line as a continuation of the value before it.
#include "platform/include/host_settings.h"

#include <fcntl.h>
#include <ini.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>
#include <map>

#include "platform/include/files.h"
#include "platform/include/root_path.h"
#include "platform/include/scope_guard.h"

namespace korvmailserver {

namespace {

const char kHostSettingsPath[] = "/etc/mailserver-domain/host.ini";

// An LDAP filter with many terms fits.
constexpr int kLongestLine = 8192;

constexpr int kSentinelPort = 26379;

// Puts a value into the settings; false with what is wrong with it. `folder` is the one of the
// settings file, against which relative file names are read.
using Setter =
    std::function<bool(const std::string& value, const std::string& folder, std::string& problem)>;

bool ParseNumber(const std::string& text, int smallest, int largest, int& number) {
  if (text.empty() || text.size() > 9 ||
      text.find_first_not_of("0123456789") != std::string::npos) {
    return false;
  }
  const int parsed = std::stoi(text);
  if (parsed < smallest || parsed > largest) {
    return false;
  }
  number = parsed;
  return true;
}

std::vector<std::string> SplitList(const std::string& text) {
  const char separators[] = ", \t";
  std::vector<std::string> items;
  size_t start = text.find_first_not_of(separators);
  while (start != std::string::npos) {
    const size_t end = text.find_first_of(separators, start);
    items.push_back(text.substr(start, end - start));
    start = text.find_first_not_of(separators, end);
  }
  return items;
}

Setter Text(std::string* field) {
  return [field](const std::string& value, const std::string&, std::string&) {
    *field = value;
    return true;
  };
}

Setter Number(int* field, int smallest, int largest) {
  return [=](const std::string& value, const std::string&, std::string& problem) {
    problem =
        "must be a number from " + std::to_string(smallest) + " to " + std::to_string(largest);
    return ParseNumber(value, smallest, largest, *field);
  };
}

Setter Flag(bool* field) {
  return [field](const std::string& value, const std::string&, std::string& problem) {
    problem = "must be yes or no";
    *field = value == "yes";
    return value == "yes" || value == "no";
  };
}

Setter OneOf(std::string* field, const std::vector<std::string>& choices) {
  return [=](const std::string& value, const std::string&, std::string& problem) {
    problem = "must be one of:";
    for (const std::string& choice : choices) {
      problem += " " + choice;
    }
    *field = value;
    return std::find(choices.begin(), choices.end(), value) != choices.end();
  };
}

// The name of a directory attribute (RFC 4512 keystring with options), sent to servers as it is.
Setter Attribute(std::string* field, bool may_be_empty = false) {
  return [=](const std::string& value, const std::string&, std::string& problem) {
    problem = "must be an attribute name";
    const auto is_letter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
    *field = value;
    if (value.empty()) {
      return may_be_empty;
    }
    return is_letter(value[0]) && std::all_of(value.begin(), value.end(), [&](char c) {
             return is_letter(c) || (c >= '0' && c <= '9') || c == '-' || c == ';';
           });
  };
}

Setter LdapUri(std::string* field) {
  return [field](const std::string& value, const std::string&, std::string& problem) {
    problem = "must begin with ldap://, ldaps:// or ldapi://";
    *field = value;
    return value.rfind("ldap://", 0) == 0 || value.rfind("ldaps://", 0) == 0 ||
           value.rfind("ldapi://", 0) == 0;
  };
}

std::string FileName(const std::string& value, const std::string& folder) {
  return value.empty() || value[0] == '/' ? value : folder + "/" + value;
}

Setter Path(std::string* field) {
  return [field](const std::string& value, const std::string& folder, std::string&) {
    *field = FileName(value, folder);
    return true;
  };
}

// The first line of a file that only its owner may read.
Setter PasswordFile(std::string* password) {
  return [password](const std::string& value, const std::string& folder, std::string& problem) {
    const std::string path = FileName(value, folder);
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const postara::ScopeGuard close_file([file] { close(file); });
    struct stat status = {};
    if (file < 0 || fstat(file, &status) != 0) {
      problem = "cannot read " + path + ": " + strerror(errno);
      return false;
    }
    if (!S_ISREG(status.st_mode)) {
      problem = path + " is not a file";
      return false;
    }
    if ((status.st_mode & 077) != 0) {
      problem = path + " may be read by others than its owner: chmod 600 it";
      return false;
    }
    std::string bytes;
    if (ReadFile(path, bytes) < 0) {
      problem = "cannot read " + path + ": " + strerror(errno);
      return false;
    }
    *password = bytes.substr(0, bytes.find_first_of("\r\n"));
    problem = path + " is empty";
    return !password->empty();
  };
}

// HOST, HOST:PORT, [V6ADDRESS] or [V6ADDRESS]:PORT.
bool ParseAddress(const std::string& text, std::pair<std::string, int>& address) {
  address.second = kSentinelPort;
  size_t end = text.find(':');
  address.first = text.substr(0, end);
  if (text[0] == '[') {
    end = text.find(']');
    if (end == std::string::npos) {
      return false;
    }
    address.first = text.substr(1, end - 1);
    end = end + 1 == text.size() ? std::string::npos : end + 1;
  }
  return !address.first.empty() &&
         (end == std::string::npos ||
          (text[end] == ':' && ParseNumber(text.substr(end + 1), 1, 65535, address.second)));
}

Setter Addresses(std::vector<std::pair<std::string, int>>* field) {
  return [field](const std::string& value, const std::string&, std::string& problem) {
    problem = "must be a list of HOST:PORT";
    for (const std::string& item : SplitList(value)) {
      std::pair<std::string, int> address;
      if (!ParseAddress(item, address)) {
        return false;
      }
      field->push_back(address);
    }
    return true;
  };
}

Setter NameSet(std::set<std::string>* field) {
  return [field](const std::string& value, const std::string&, std::string&) {
    const std::vector<std::string> names = SplitList(value);
    *field = std::set<std::string>(names.begin(), names.end());
    return true;
  };
}

Setter NoTls() {
  return [](const std::string&, const std::string&, std::string& problem) {
    problem =
        "is not supported; run stunnel as a client on this host and set host and port to where it"
        " listens";
    return false;
  };
}

using Keys = std::map<std::pair<std::string, std::string>, Setter>;

void AddLdapKeys(LdapSettings& ldap, Keys& keys) {
  keys[{"ldap", "uri"}] = LdapUri(&ldap.uri);
  keys[{"ldap", "start_tls"}] = Flag(&ldap.start_tls);
  keys[{"ldap", "ca_file"}] = Path(&ldap.ca_file);
  keys[{"ldap", "bind_dn"}] = Text(&ldap.bind_dn);
  keys[{"ldap", "password_file"}] = PasswordFile(&ldap.password);
  keys[{"ldap", "user_base"}] = Text(&ldap.user_base);
  keys[{"ldap", "user_filter"}] = Text(&ldap.user_filter);
  keys[{"ldap", "group_base"}] = Text(&ldap.group_base);
  keys[{"ldap", "group_filter"}] = Text(&ldap.group_filter);
  keys[{"ldap", "user_name_attr"}] = Attribute(&ldap.user_name_attr);
  keys[{"ldap", "user_id_attr"}] = Attribute(&ldap.user_id_attr);
  keys[{"ldap", "user_gid_attr"}] = Attribute(&ldap.user_gid_attr);
  keys[{"ldap", "user_mail_attr"}] = Attribute(&ldap.user_mail_attr);
  keys[{"ldap", "user_full_name_attr"}] = Attribute(&ldap.user_full_name_attr);
  keys[{"ldap", "group_name_attr"}] = Attribute(&ldap.group_name_attr);
  keys[{"ldap", "group_id_attr"}] = Attribute(&ldap.group_id_attr);
  keys[{"ldap", "group_desc_attr"}] = Attribute(&ldap.group_desc_attr);
  keys[{"ldap", "schema"}] = OneOf(&ldap.schema, {"rfc2307", "rfc2307bis"});
  keys[{"ldap", "member_attr"}] = Attribute(&ldap.member_attr, true);
  keys[{"ldap", "timeout"}] = Number(&ldap.timeout, 1, 3600);
  keys[{"ldap", "page_size"}] = Number(&ldap.page_size, 1, 1000);
}

Keys KnownKeys(HostSettings& settings) {
  KeyStoreSettings& store = settings.keystore;
  Keys keys;
  keys[{"keystore", "backend"}] = OneOf(&store.backend, {"embedded", "redis"});
  keys[{"keystore", "host"}] = Text(&store.host);
  keys[{"keystore", "port"}] = Number(&store.port, 1, 65535);
  keys[{"keystore", "socket"}] = Path(&store.socket);
  keys[{"keystore", "user"}] = Text(&store.user);
  keys[{"keystore", "password_file"}] = PasswordFile(&store.password);
  keys[{"keystore", "database"}] = Number(&store.database, 0, 65535);
  keys[{"keystore", "prefix"}] = Text(&store.prefix);
  keys[{"keystore", "connect_timeout"}] = Number(&store.connect_timeout, 1, 3600);
  keys[{"keystore", "command_timeout"}] = Number(&store.command_timeout, 1, 3600);
  keys[{"keystore", "sentinels"}] = Addresses(&store.sentinels);
  keys[{"keystore", "master"}] = Text(&store.master);
  keys[{"keystore", "min_replicas"}] = Number(&store.min_replicas, 0, 100);
  keys[{"keystore", "tls"}] = NoTls();
  AddLdapKeys(settings.ldap, keys);
  keys[{"winbind", "timeout"}] = Number(&settings.winbind.timeout, 1, 3600);
  keys[{"winbind", "net_timeout"}] = Number(&settings.winbind.net_timeout, 1, 3600);
  keys[{"local", "internal"}] = NameSet(&settings.local.internal);
  return keys;
}

// One pass over the file. The first error counts.
class Parser {
 public:
  Parser(std::string path, const std::string& bytes, HostSettings& settings)
      : path_(std::move(path)),
        folder_(path_.substr(0, path_.rfind('/'))),
        bytes_(bytes),
        keys_(KnownKeys(settings)) {}

  bool Run(std::string& error) {
    const int longest_line = std::exchange(ini_max_line, kLongestLine);
    const int bad_line = ini_parse_stream(&Parser::NextLine, this, &Parser::OnValue, this);
    ini_max_line = longest_line;
    if (error_.empty() && bad_line != 0) {
      error_ = At(bad_line) + "neither \"[section]\" nor \"key = value\"";
    }
    error = error_;
    return error.empty();
  }

  // The line on which a key was set, 0 if it was not.
  int LineOf(const std::string& section, const std::string& name) const {
    const auto line = lines_.find({section, name});
    return line == lines_.end() ? 0 : line->second;
  }

  std::string At(int line) const { return path_ + ":" + std::to_string(line) + ": "; }

 private:
  static char* NextLine(char* buffer, int size, void* self) {
    return static_cast<Parser*>(self)->CopyLine(buffer, static_cast<size_t>(size));
  }

  static int OnValue(void* self, const char* section, const char* name, const char* value) {
    static_cast<Parser*>(self)->SetValue(section, name, value);
    return 1;
  }

  char* CopyLine(char* buffer, size_t size) {
    if (position_ >= bytes_.size()) {
      return nullptr;
    }
    ++line_;
    std::string line = bytes_.substr(position_, bytes_.find('\n', position_) - position_);
    position_ += line.size() + 1;
    line.erase(0, line.find_first_not_of(" \t\r"));
    if (line.size() + 2 > size || line.find('\0') != std::string::npos) {
      Fail("line too long or with a zero byte");
      line.clear();
    }
    CheckSection(line);
    line += '\n';
    memcpy(buffer, line.c_str(), line.size() + 1);
    return buffer;
  }

  // A section without a key would never be seen by SetValue; inih also cuts long names.
  void CheckSection(const std::string& line) {
    if (line.empty() || line[0] != '[') {
      return;
    }
    const std::string section = line.substr(1, line.find(']') - 1);
    const auto known = std::any_of(keys_.begin(), keys_.end(),
                                   [&](const auto& key) { return key.first.first == section; });
    if (!known) {
      Fail("unknown section [" + section + "]");
    }
  }

  void SetValue(const std::string& section, const std::string& name, const std::string& value) {
    const auto key = keys_.find({section, name});
    if (key == keys_.end()) {
      Fail("unknown key " + name +
           (section.empty() ? " outside a section" : " in [" + section + "]"));
      return;
    }
    if (!lines_.emplace(key->first, line_).second) {
      Fail(name + " is set twice");
      return;
    }
    std::string problem;
    if (!key->second(value, folder_, problem)) {
      Fail(name + " " + problem);
    }
  }

  void Fail(const std::string& text) {
    if (error_.empty()) {
      error_ = At(line_) + text;
    }
  }

  const std::string path_;
  const std::string folder_;
  const std::string& bytes_;
  size_t position_ = 0;
  Keys keys_;
  int line_ = 0;
  std::map<std::pair<std::string, std::string>, int> lines_;
  std::string error_;
};

// What only the keys together can get wrong.
bool CheckKeyStore(const KeyStoreSettings& store, const Parser& parser, std::string& error) {
  const int sentinels = parser.LineOf("keystore", "sentinels");
  const int master = parser.LineOf("keystore", "master");
  const int socket = parser.LineOf("keystore", "socket");
  if (!store.sentinels.empty() && store.master.empty()) {
    error = parser.At(sentinels) + "sentinels needs master, the name that they know it by";
  } else if (store.sentinels.empty() && !store.master.empty()) {
    error = parser.At(master) + "master needs sentinels";
  } else if (!store.sentinels.empty() && !store.socket.empty()) {
    error = parser.At(socket) + "socket and sentinels exclude each other";
  } else if (!store.user.empty() && store.password.empty()) {
    error = parser.At(parser.LineOf("keystore", "user")) + "user needs password_file";
  }
  return error.empty();
}

}  // namespace

std::string HostSettingsPath() {
  return UnderRoot(kHostSettingsPath);
}

bool ReadHostSettings(HostSettings& settings, std::string& error) {
  const std::string path = HostSettingsPath();
  std::string bytes;
  HostSettings read;
  error.clear();
  if (ReadFile(path, bytes) < 0) {
    if (errno != ENOENT) {
      error = path + ": " + strerror(errno);
      return false;
    }
    settings = read;
    return true;
  }
  Parser parser(path, bytes, read);
  if (!parser.Run(error) || !CheckKeyStore(read.keystore, parser, error)) {
    return false;
  }
  settings = read;
  return true;
}

}  // namespace korvmailserver
