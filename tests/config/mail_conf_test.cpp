// What the mail configuration is read into: the account domain, settings members, SMTP domains.
#include "platform/include/mail_conf.h"

#include "platform/include/config.h"
#include "platform/include/smtp_conf.h"
#include "tests/support/fixture.h"

namespace test {

const char kStore[] = "/var/packages/Postara-Server/etc/keystore.db";

class MailConfTest : public RootTest {
 protected:
  static void Set(const std::string& key, const std::string& value) {
    ASSERT_EQ(mailConfSet(key, value, true, 0), 0);
  }
};

TEST_F(MailConfTest, AccountDomainFollowsTheAccountType) {
  Set("win_domain_short_name", "ADEX");
  Set("acc_domain_name", "example.com");
  std::string name;
  EXPECT_EQ(smtpAccountDomainGet(name), 0);
  EXPECT_EQ(name, "local") << "the default type";
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"win", "ADEX"}, {"ldap", "example.com"}, {"local", "local"}};
  for (const auto& [type, want] : cases) {
    Set("account_type", type);
    EXPECT_EQ(smtpAccountDomainGet(name), 0) << type;
    EXPECT_EQ(name, want) << type;
  }
  Set("acc_domain_name", "");
  Set("account_type", "ldap");
  EXPECT_EQ(smtpAccountDomainGet(name), 0);
  EXPECT_EQ(name, "");
  for (const char* type : {"", "LDAP", "nis"}) {
    Set("account_type", type);
    name = "untouched";
    EXPECT_NE(smtpAccountDomainGet(name), 0) << type;
    EXPECT_EQ(name, "untouched");
    EXPECT_TRUE(Logged("unknown account type"));
  }
}

struct Settings : Config {
  Settings() {
    AddToBoolMap("first", &first, true);
    AddToBoolMap("second", &second, false);
  }
  bool first;
  bool second;
};

TEST_F(MailConfTest, AnUnreadableStoreFailsEveryReader) {
  Write(kStore, std::string(4096, 'g'));
  Settings settings;
  std::string name;
  SmtpConf smtp;
  EXPECT_NE(smtpAccountDomainGet(name), 0);
  EXPECT_LT(settings.LoadSettings(), 0);
  EXPECT_LT(settings.SaveSettings(), 0);
  EXPECT_LT(smtp.LoadSettings(), 0);
  EXPECT_FALSE(mailConfCheckKeyValue("account_type", "local"));
  EXPECT_TRUE(settings.first);
  EXPECT_EQ(TakeLog().size(), 5U);
}

TEST_F(MailConfTest, SettingsMembersAreLoadedAndSaved) {
  const auto load = [] {
    Settings settings;
    EXPECT_EQ(settings.LoadSettings(), 0);
    return std::make_pair(settings.first, settings.second);
  };
  EXPECT_EQ(load(), std::make_pair(true, false)) << "the defaults";
  Settings changed;
  changed.first = false;
  changed.second = true;
  EXPECT_EQ(changed.SaveSettings(), 0);
  EXPECT_TRUE(mailConfCheckKeyValue("first", "no"));
  EXPECT_TRUE(mailConfCheckKeyValue("second", "yes"));
  EXPECT_EQ(load(), std::make_pair(false, true));
  Set("first", "maybe");
  EXPECT_EQ(load(), std::make_pair(true, true)) << "neither yes nor no leaves the default";
}

TEST_F(MailConfTest, PublishedDomainsAreReadBack) {
  Set("virtual_multiple_domain", "1/example.com, 12/bücher.example,3/a.example");
  Set("additional_domain-1", "example.net, example.org");
  Set("additional_domain-12", "");
  Set("smtp_main_domain", "example.com");
  Set("smtp_canonical_domain", "a.example b.example,c.example");
  SmtpConf smtp;
  ASSERT_EQ(smtp.LoadSettings(), 0);
  EXPECT_EQ(
      smtp.GetMultiDomainMap(),
      (std::map<int, std::string>{{1, "example.com"}, {3, "a.example"}, {12, "bücher.example"}}));
  EXPECT_EQ(smtp.GetMainDomain(), "example.com");
  EXPECT_EQ(smtp.GetCanonicalDomain(),
            (std::list<std::string>{"a.example", "b.example", "c.example"}));
  EXPECT_EQ(smtp.GetDomainId("Example.COM"), 1);
  EXPECT_EQ(smtp.GetDomainId("bücher.example"), 12);
  EXPECT_LT(smtp.GetDomainId("example"), 0);
  std::list<std::string> names;
  EXPECT_EQ(smtp.GetAdditionalDomainList(1, names), 0);
  EXPECT_EQ(names, (std::list<std::string>{"example.net", "example.org"}));
  EXPECT_EQ(smtp.GetAdditionalDomainList(12, names), 0);
  EXPECT_TRUE(names.empty());
  EXPECT_LT(smtp.GetAdditionalDomainList(2, names), 0);
  Set("virtual_multiple_domain", "");
  ASSERT_EQ(smtp.LoadSettings(), 0);
  EXPECT_TRUE(smtp.GetMultiDomainMap().empty());
  EXPECT_LT(smtp.GetAdditionalDomainList(1, names), 0);
  EXPECT_LT(smtp.GetDomainId("example.com"), 0) << "the main domain of older settings has no id";
}

TEST_F(MailConfTest, MalformedDomainEntriesAreLeftOutWithAWarning) {
  Set("virtual_multiple_domain",
      "x, /no-id.example, 4/, -1/minus.example, 99999999999/big.example, 1/a.example, 1/b.example");
  SmtpConf smtp;
  ASSERT_EQ(smtp.LoadSettings(), 0);
  EXPECT_EQ(smtp.GetMultiDomainMap(), (std::map<int, std::string>{{1, "a.example"}}));
  EXPECT_EQ(log_.size(), 6U);
  EXPECT_TRUE(Logged("[1/b.example] left out"));
}

}  // namespace test
