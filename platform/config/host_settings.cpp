// Reads /etc/mailserver-domain/host.ini with inih: one table of keys, one text per error.
//
// inih tells its callback no line numbers unless it was compiled so, and the lines are handed to it
// one by one and counted. Leading blanks are taken away on the way: inih would read an indented
// line as a continuation of the value before it.
#include "platform/include/host_settings.h"

#include <ini.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>

#include "platform/config/setting_values.h"
#include "platform/include/files.h"
#include "platform/include/root_path.h"

namespace korvmailserver {

namespace {

constexpr char kHostSettingsPath[] = "/etc/mailserver-domain/host.ini";

// An LDAP filter with many terms fits.
constexpr int kLongestLine = 8192;

using Keys = std::map<std::pair<std::string, std::string>, SettingSetter>;

void AddLdapKeys(LdapSettings& ldap, Keys& keys) {
  keys[{"ldap", "uri"}] = LdapUriSetting(&ldap.uri);
  keys[{"ldap", "start_tls"}] = FlagSetting(&ldap.start_tls);
  keys[{"ldap", "ca_file"}] = PathSetting(&ldap.ca_file);
  keys[{"ldap", "bind_dn"}] = TextSetting(&ldap.bind_dn);
  keys[{"ldap", "password_file"}] = PasswordFileSetting(&ldap.password);
  keys[{"ldap", "user_base"}] = TextSetting(&ldap.user_base);
  keys[{"ldap", "user_filter"}] = TextSetting(&ldap.user_filter);
  keys[{"ldap", "group_base"}] = TextSetting(&ldap.group_base);
  keys[{"ldap", "group_filter"}] = TextSetting(&ldap.group_filter);
  keys[{"ldap", "user_name_attr"}] = AttributeSetting(&ldap.user_name_attr);
  keys[{"ldap", "user_id_attr"}] = AttributeSetting(&ldap.user_id_attr);
  keys[{"ldap", "user_gid_attr"}] = AttributeSetting(&ldap.user_gid_attr);
  keys[{"ldap", "user_mail_attr"}] = AttributeSetting(&ldap.user_mail_attr);
  keys[{"ldap", "user_full_name_attr"}] = AttributeSetting(&ldap.user_full_name_attr);
  keys[{"ldap", "group_name_attr"}] = AttributeSetting(&ldap.group_name_attr);
  keys[{"ldap", "group_id_attr"}] = AttributeSetting(&ldap.group_id_attr);
  keys[{"ldap", "group_desc_attr"}] = AttributeSetting(&ldap.group_desc_attr);
  keys[{"ldap", "schema"}] = OneOfSetting(&ldap.schema, {"rfc2307", "rfc2307bis"});
  keys[{"ldap", "member_attr"}] = AttributeSetting(&ldap.member_attr, true);
  keys[{"ldap", "timeout"}] = NumberSetting(&ldap.timeout, 1, 3600);
  keys[{"ldap", "page_size"}] = NumberSetting(&ldap.page_size, 1, 1000);
}

Keys KnownKeys(HostSettings& settings) {
  KeyStoreSettings& store = settings.keystore;
  Keys keys;
  keys[{"keystore", "backend"}] = OneOfSetting(&store.backend, {"embedded", "redis"});
  keys[{"keystore", "host"}] = TextSetting(&store.host);
  keys[{"keystore", "port"}] = NumberSetting(&store.port, 1, 65535);
  keys[{"keystore", "socket"}] = PathSetting(&store.socket);
  keys[{"keystore", "user"}] = TextSetting(&store.user);
  keys[{"keystore", "password_file"}] = PasswordFileSetting(&store.password);
  keys[{"keystore", "database"}] = NumberSetting(&store.database, 0, 65535);
  keys[{"keystore", "prefix"}] = TextSetting(&store.prefix);
  keys[{"keystore", "connect_timeout"}] = NumberSetting(&store.connect_timeout, 1, 3600);
  keys[{"keystore", "command_timeout"}] = NumberSetting(&store.command_timeout, 1, 3600);
  keys[{"keystore", "sentinels"}] = AddressesSetting(&store.sentinels);
  keys[{"keystore", "master"}] = TextSetting(&store.master);
  keys[{"keystore", "node"}] = TextSetting(&store.node);
  keys[{"keystore", "min_replicas"}] = NumberSetting(&store.min_replicas, 0, 100);
  keys[{"keystore", "tls"}] = NoTlsSetting();
  AddLdapKeys(settings.ldap, keys);
  keys[{"winbind", "timeout"}] = NumberSetting(&settings.winbind.timeout, 1, 3600);
  keys[{"winbind", "net_timeout"}] = NumberSetting(&settings.winbind.net_timeout, 1, 3600);
  keys[{"local", "internal"}] = NameSetSetting(&settings.local.internal);
  DeliverySettings& delivery = settings.delivery;
  keys[{"delivery", "local"}] = OneOfSetting(&delivery.local, {"local", "lmtp"});
  keys[{"delivery", "directory"}] = OneOfSetting(&delivery.directory, {"local", "lmtp"});
  keys[{"delivery", "lmtp"}] = TextSetting(&delivery.lmtp);
  keys[{"delivery", "lmtp_name"}] = OneOfSetting(&delivery.lmtp_name, {"short", "full"});
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

// Sentinels make another server the primary; what only the old one had is then lost.
void SetReplicasOf(KeyStoreSettings& store, const Parser& parser) {
  if (!store.sentinels.empty() && parser.LineOf("keystore", "min_replicas") == 0) {
    store.min_replicas = 1;
  }
}

// Mistakes that show only when all keys are read.
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

bool CheckLdap(const LdapSettings& ldap, const Parser& parser, std::string& error) {
  const std::string at_uri = parser.At(parser.LineOf("ldap", "uri"));
  if (!ldap.uri.empty() && ldap.user_base.empty()) {
    error = at_uri + "uri needs user_base, the entry below which the users are";
  } else if (!ldap.uri.empty() && ldap.group_base.empty()) {
    error = at_uri + "uri needs group_base, the entry below which the groups are";
  } else if (!ldap.bind_dn.empty() && ldap.password.empty()) {
    // Servers take an empty password for an anonymous bind, and answer with what strangers may see.
    error = parser.At(parser.LineOf("ldap", "bind_dn")) + "bind_dn needs password_file";
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
  if (!parser.Run(error) || !CheckKeyStore(read.keystore, parser, error) ||
      !CheckLdap(read.ldap, parser, error)) {
    return false;
  }
  SetReplicasOf(read.keystore, parser);
  if (OtherRoot::IsInForce()) {
    read.keystore = KeyStoreSettings();
  }
  settings = read;
  return true;
}

}  // namespace korvmailserver
