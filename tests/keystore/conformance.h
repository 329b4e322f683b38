// What every key store must do, written once. A program instantiates it with the name of a store
// and a function that points a root's host settings at an empty one.
#ifndef TESTS_KEYSTORE_CONFORMANCE_H
#define TESTS_KEYSTORE_CONFORMANCE_H

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "platform/include/key_store.h"
#include "platform/include/mail_conf.h"
#include "platform/include/mail_conf_change.h"
#include "platform/include/nodes.h"
#include "tests/support/fixture.h"

namespace test {

struct StoreCase {
  std::string name;
  // The host.ini that selects an empty store, which this machine then manages; empty: none is
  // written.
  std::function<std::string()> host_ini;
};

class KeyStoreConformance : public RootTest, public ::testing::WithParamInterface<StoreCase> {
 protected:
  using Wrap = KORV::POSTARA_SERVER::PostaraServerBACKENDWrap;
  using Cluster = KORV::POSTARA_SERVER::KORVMailNodeCluster;
  using Values = std::map<std::string, std::string>;

  KeyStoreConformance() {
    if (GetParam().host_ini) {
      Write("/etc/mailserver-domain/host.ini", GetParam().host_ini());
      korvmailserver::StoreStanding seen;
      EXPECT_TRUE(korvmailserver::ReadStoreStanding(seen));
      EXPECT_TRUE(korvmailserver::BeginManaging(seen));
    }
  }

  static Values All() {
    Values values;
    EXPECT_EQ(mailConfList(values), 0);
    return values;
  }
  static std::vector<std::string> Keys(const std::string& tree) {
    std::vector<std::string> keys = {"left over"};
    EXPECT_TRUE(Wrap::ls(tree, keys));
    return keys;
  }
};

TEST_P(KeyStoreConformance, AnEmptyStoreGivesDefaultsAndIsHealthy) {
  std::string value = "left over";
  EXPECT_EQ(mailConfGet("nothing", value), 0);
  EXPECT_EQ(value, "");
  EXPECT_EQ(mailConfGet("account_type", value), 0);
  EXPECT_EQ(value, "local");
  EXPECT_TRUE(mailConfCheckKeyValue("account_type", "local"));
  EXPECT_TRUE(All().empty());
  EXPECT_TRUE(Keys("virtual_domain").empty());
  EXPECT_FALSE(Wrap::exist("nothing"));
  EXPECT_TRUE(Wrap::removeKey("nothing"));
  EXPECT_EQ(Wrap::getFile("nothing", value), true);
  EXPECT_EQ(value, "");
  EXPECT_TRUE(Cluster::isClusterHealth(1));
}

TEST_P(KeyStoreConformance, ValuesComeBackByteForByte) {
  const std::vector<std::pair<std::string, std::string>> entries = {
      {"empty", ""},
      {"quotes", R"(it's "so" \ %s %d)"},
      {"lines", "a\r\nb\tc"},
      {"zero", std::string("a\0b", 3)},
      {"utf8 kéy", "grüße 漢字"},
      {"not utf8", "\xff\xfe"},
      {"*[?", "pattern characters"},
      {"long", std::string(1 << 20, 'x')},
  };
  ASSERT_EQ(mailConfSetMany(entries), 0);
  for (const auto& [key, value] : entries) {
    std::string stored = "left over";
    EXPECT_EQ(mailConfGet(key, stored), 0);
    EXPECT_EQ(stored, value) << key;
    EXPECT_TRUE(Wrap::exist(key)) << key;
  }
  EXPECT_EQ(All(), Values(entries.begin(), entries.end()));
}

TEST_P(KeyStoreConformance, AStoredEmptyValueIsNotTheDefault) {
  ASSERT_EQ(mailConfSet("account_type", "", true, 0), 0);
  EXPECT_TRUE(mailConfCheckKeyValue("account_type", ""));
  EXPECT_TRUE(Wrap::removeKey("account_type"));
  EXPECT_TRUE(mailConfCheckKeyValue("account_type", "local"));
}

TEST_P(KeyStoreConformance, TreesAreListedApart) {
  ASSERT_EQ(mailConfSetMany({{"additional_domain-10", "a"},
                             {"additional_domain-2", ""},
                             {"additional_domains", "root"},
                             {"b", "1"}}),
            0);
  EXPECT_EQ(Keys("virtual_domain"),
            (std::vector<std::string>{"additional_domain-10", "additional_domain-2"}));
  EXPECT_EQ(Keys(""), (std::vector<std::string>{"additional_domains", "b"}));
  EXPECT_TRUE(Keys("no such tree").empty());
  EXPECT_TRUE(Wrap::removeKey("additional_domain-10"));
  EXPECT_EQ(Keys("virtual_domain"), (std::vector<std::string>{"additional_domain-2"}));
  EXPECT_FALSE(Wrap::exist("additional_domain-10"));
  EXPECT_EQ(
      mailConfChange({{"b", "2"}, {"additional_domain-1", ""}}, {"additional_domain-2", "nothing"}),
      0);
  EXPECT_EQ(Keys("virtual_domain"), (std::vector<std::string>{"additional_domain-1"}));
  EXPECT_TRUE(mailConfCheckKeyValue("b", "2"));
}

TEST_P(KeyStoreConformance, ManyAtOnceIsTheSameAsOneByOne) {
  std::vector<std::pair<std::string, std::string>> entries;
  std::vector<std::string> keys;
  for (int i = 0; i < 3000; ++i) {
    keys.push_back("additional_domain-" + std::to_string(i));
    entries.emplace_back(keys.back(), "old");
  }
  entries.emplace_back("additional_domain-7", "new");  // given twice: the last counts
  ASSERT_EQ(mailConfSetMany(entries), 0);
  keys.emplace_back("account_type");
  keys.emplace_back("nothing");
  Values values = {{"kept", "as it was"}};
  ASSERT_EQ(mailConfGetMany(keys, values), 0);
  EXPECT_EQ(values.size(), 3003U);
  EXPECT_EQ(values["additional_domain-7"], "new");
  EXPECT_EQ(values["additional_domain-2999"], "old");
  EXPECT_EQ(values["account_type"], "local");
  EXPECT_EQ(values["nothing"], "");
  EXPECT_EQ(values["kept"], "as it was");
  EXPECT_EQ(Keys("virtual_domain").size(), 3000U);
  EXPECT_EQ(mailConfGetMany({}, values), 0);
  EXPECT_EQ(mailConfSetMany({}), 0);
  keys.erase(keys.begin());
  EXPECT_TRUE(Wrap::removeKeys(keys));
  EXPECT_EQ(Keys("virtual_domain"), (std::vector<std::string>{"additional_domain-0"}));
  EXPECT_TRUE(Wrap::removeKeys({}));
}

TEST_P(KeyStoreConformance, AFileIsKnownByItsPath) {
  Write("/file one", "content");
  Write("/file two", "content");
  std::string path;
  for (const char* name : {"/file one", "/file one", "/file two"}) {
    ASSERT_TRUE(Wrap::setFile("mailserver_domain_db", root() + name));
    EXPECT_TRUE(Wrap::getFile("mailserver_domain_db", path));
    EXPECT_EQ(path, root() + name);
  }
  EXPECT_EQ(Cluster::setFile("sync", root() + "/file one"), 0);
  EXPECT_TRUE(Wrap::exist("sync"));
  EXPECT_EQ(Keys(""), (std::vector<std::string>{"mailserver_domain_db", "sync"}));
  EXPECT_TRUE(Wrap::removeKey("sync"));
  EXPECT_TRUE(Wrap::getFile("sync", path));
  EXPECT_EQ(path, "");
}

}  // namespace test

#endif  // TESTS_KEYSTORE_CONFORMANCE_H
