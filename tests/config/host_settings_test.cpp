// The host settings file: what is read, and one clear text for everything that is wrong.
#include "platform/include/host_settings.h"

#include <sys/stat.h>

#include "tests/support/fixture.h"

namespace test {

using korvmailserver::HostSettings;
using korvmailserver::ReadHostSettings;

const char kFile[] = "/etc/mailserver-domain/host.ini";

class HostSettingsTest : public RootTest {
 protected:
  void WritePassword(const std::string& name, const std::string& bytes, mode_t mode) {
    const std::string path = "/etc/mailserver-domain/" + name;
    Write(path, bytes);
    chmod((root() + path).c_str(), mode);
  }
  // The error of a settings file with these lines, without the file's name.
  std::string ErrorOf(const std::string& bytes) {
    Write(kFile, bytes);
    HostSettings settings;
    settings.keystore.port = 1;
    std::string error;
    if (ReadHostSettings(settings, error)) {
      return "none";
    }
    EXPECT_EQ(settings.keystore.port, 1) << "settings stay untouched";
    EXPECT_EQ(error.rfind(root() + kFile + ":", 0), 0U) << error;
    return error.substr(std::min(error.size(), (root() + kFile + ":").size()));
  }
};

TEST_F(HostSettingsTest, AMissingOrEmptyFileGivesTheDefaults) {
  HostSettings settings;
  settings.keystore.port = 1;
  std::string error;
  EXPECT_TRUE(ReadHostSettings(settings, error)) << error;
  EXPECT_EQ(settings.keystore.port, 6379);
  Write(kFile, "# nothing\n\n[ldap]\n");
  EXPECT_TRUE(ReadHostSettings(settings, error)) << error;
  EXPECT_EQ(settings.ldap.page_size, 500);
}

TEST_F(HostSettingsTest, ReadsWhatIsSet) {
  WritePassword("redis.password", "s3cret word \nsecond line\n", 0400);
  WritePassword("ldap.password", "pä\"ss", 0600);
  const std::string filter = "(|" + std::string(40, ' ') + "(mail=" + std::string(3000, 'x') + "))";
  Write(kFile,
        "\xEF\xBB\xBF; byte order mark and comment\r\n"
        "[keystore]\r\n"
        "backend = redis\r\n"
        "  prefix=site one:\r\n"
        "\tpassword_file = redis.password\r\n"
        "user = publisher\n"
        "sentinels = a:1, [::1]:2 ,b\n"
        "master = mail\n"
        "min_replicas = 2\n"
        "node = mail1\n"
        "[ldap]\n"
        "uri = ldaps://directory.example\n"
        "user_base = ou=p\n"
        "group_base = ou=g\n"
        "start_tls = yes\n"
        "password_file = " +
            root() + "/etc/mailserver-domain/ldap.password\n" + "user_filter = " + filter +
            "\n"
            "ca_file = ca.pem\n"
            "member_attr =\n"
            "[local]\n"
            "internal = backup, www-data\n"
            "[winbind]\n"
            "timeout = 7");
  HostSettings settings;
  std::string error;
  ASSERT_TRUE(ReadHostSettings(settings, error)) << error;
  EXPECT_EQ(settings.keystore.backend, "redis");
  EXPECT_EQ(settings.keystore.prefix, "site one:");
  EXPECT_EQ(settings.keystore.password, "s3cret word ");
  const std::vector<std::pair<std::string, int>> sentinels = {{"a", 1}, {"::1", 2}, {"b", 26379}};
  EXPECT_EQ(settings.keystore.sentinels, sentinels);
  EXPECT_EQ(settings.keystore.min_replicas, 2);
  EXPECT_EQ(settings.keystore.node, "mail1");
  EXPECT_TRUE(settings.ldap.start_tls);
  EXPECT_EQ(settings.ldap.password, "pä\"ss");
  EXPECT_EQ(settings.ldap.user_filter, filter);
  EXPECT_EQ(settings.ldap.ca_file, root() + "/etc/mailserver-domain/ca.pem");
  EXPECT_EQ(settings.local.internal, (std::set<std::string>{"backup", "www-data"}));
  EXPECT_EQ(settings.winbind.timeout, 7);
}

TEST_F(HostSettingsTest, SentinelsAskForAReplicaUnlessTheFileSaysOtherwise) {
  const std::pair<const char*, int> cases[] = {
      {"[keystore]\n", 0},
      {"[keystore]\nsentinels = a\nmaster = m\n", 1},
      {"[keystore]\nmin_replicas = 0\nsentinels = a\nmaster = m\n", 0}};
  for (const auto& [bytes, want] : cases) {
    HostSettings settings;
    std::string error;
    Write(kFile, bytes);
    ASSERT_TRUE(ReadHostSettings(settings, error)) << error;
    EXPECT_EQ(settings.keystore.min_replicas, want) << bytes;
  }
}

TEST_F(HostSettingsTest, EveryMistakeIsNamedWithItsLine) {
  WritePassword("open", "secret\n", 0640);
  WritePassword("empty", "\n", 0600);
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"port = 1\n", "1: unknown key port outside a section"},
      {"[keystore]\nprot = 1\n", "2: unknown key prot in [keystore]"},
      {"\n[keystroe]\n", "2: unknown section [keystroe]"},
      {"[keystore\n", "1: neither"},
      {"[keystore]\nport = 1\nport = 2\n", "3: port is set twice"},
      {"[keystore]\n\n# c\nport\n", "4: neither"},
      {"[keystore]\nport = 65536\n", "2: port must be a number from 1 to 65535"},
      {"[keystore]\nport = 6379x\n", "2: port must be a number"},
      {"[keystore]\nport =\n", "2: port must be a number"},
      {"[keystore]\nport = 99999999999999999999\n", "2: port must be a number"},
      {"[keystore]\nbackend = mysql\n", "2: backend must be one of: embedded redis"},
      {"[keystore]\ntls = no\n", "2: tls is not supported; run stunnel"},
      {"[keystore]\nsentinels = a:x\nmaster = m\n", "2: sentinels must be a list of HOST:PORT"},
      {"[keystore]\nsentinels = []x1\nmaster = m\n", "2: sentinels must be"},
      {"[keystore]\nsentinels = a\n", "2: sentinels needs master"},
      {"[keystore]\n\nmaster = m\n", "3: master needs sentinels"},
      {"[keystore]\nsentinels = a\nmaster = m\nsocket = /s\n", "4: socket and sentinels"},
      {"[keystore]\nuser = u\n", "2: user needs password_file"},
      {"[keystore]\npassword_file = missing\n", "2: password_file cannot read"},
      {"[keystore]\npassword_file = open\n", "2: password_file " + root()},
      {"[ldap]\npassword_file = open\n", "may be read by others than its owner"},
      {"[ldap]\npassword_file = empty\n", "empty is empty"},
      {"[ldap]\npassword_file = .\n", "is not a file"},
      {"[ldap]\nuri = directory.example\n", "2: uri must begin with ldap://"},
      {"[ldap]\nuri = ldap://a\ngroup_base = b\n", "2: uri needs user_base"},
      {"[ldap]\nuri = ldap://a\nuser_base = b\n", "2: uri needs group_base"},
      {"[ldap]\nbind_dn = cn=a\n", "2: bind_dn needs password_file"},
      {"[ldap]\nuser_mail_attr = mail)(uid=*\n", "2: user_mail_attr must be an attribute name"},
      {"[ldap]\nuser_name_attr =\n", "2: user_name_attr must be an attribute name"},
      {"[ldap]\nstart_tls = maybe\n", "2: start_tls must be yes or no"},
      {"[ldap]\npage_size = 1001\n", "2: page_size must be a number from 1 to 1000"},
      {"[ldap]\nuser_filter = " + std::string(9000, 'x') + "\n", "2: line too long"},
      {std::string("[ldap]\nuri = ldap://a\0\n", 23), "2: line too long or with a zero byte"},
  };
  for (const auto& [bytes, want] : cases) {
    const std::string got = ErrorOf(bytes);
    EXPECT_NE(got.find(want), std::string::npos) << bytes << "got  " << got << "\nwant " << want;
  }
}

}  // namespace test
