// The embedded key store: the shared conformance, its file's life, and files that are not usable.
#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <random>

#include "platform/include/sqlite.h"
#include "tests/keystore/conformance.h"
#include "tests/support/children.h"

// A locked store is given up after 10 seconds; the tests wait a tenth of one.
extern "C" int sqlite3_busy_timeout(sqlite3* db, int milliseconds) {
  using Real = int (*)(sqlite3*, int);
  static const Real real = reinterpret_cast<Real>(dlsym(RTLD_NEXT, "sqlite3_busy_timeout"));
  return real(db, milliseconds < 100 ? milliseconds : 100);
}

namespace test {

namespace fs = std::filesystem;

const char kStore[] = "/var/packages/Postara-Server/etc/keystore.db";

INSTANTIATE_TEST_SUITE_P(Embedded, KeyStoreConformance,
                         ::testing::Values(StoreCase{"embedded", nullptr}),
                         [](const auto& store) { return store.param.name; });

class EmbeddedTest : public RootTest {
 protected:
  using Wrap = KORV::POSTARA_SERVER::PostaraServerBACKENDWrap;
  using Cluster = KORV::POSTARA_SERVER::KORVMailNodeCluster;

  std::string Store() const { return root() + kStore; }
  // Every kind of call fails, each with one error line that contains `reason`.
  void ExpectAllRefused(const std::string& reason, bool reads_too) {
    std::string value = "untouched";
    std::vector<std::string> keys = {"untouched"};
    std::map<std::string, std::string> values = {{"untouched", ""}};
    EXPECT_LT(mailConfSet("key", "other", true, 0), 0);
    EXPECT_FALSE(Wrap::removeKey("key"));
    EXPECT_FALSE(Wrap::setFile("key", "/path"));
    size_t calls = 3;
    if (reads_too) {
      EXPECT_LT(mailConfGet("key", value), 0);
      EXPECT_FALSE(Wrap::ls("", keys));
      EXPECT_LT(mailConfList(values), 0);
      EXPECT_FALSE(Wrap::exist("key"));
      EXPECT_FALSE(Wrap::getFile("key", value));
      calls += 5;
    }
    EXPECT_EQ(value, "untouched");
    EXPECT_EQ(keys.size(), 1U);
    EXPECT_EQ(values.size(), 1U);
    const std::vector<LogLine> lines = TakeLog();
    EXPECT_EQ(lines.size(), calls);
    for (const LogLine& line : lines) {
      EXPECT_EQ(line.level, 3);
      EXPECT_NE(line.text.find(reason), std::string::npos) << line.text;
    }
    EXPECT_FALSE(Cluster::isClusterHealth(1));
    TakeLog();
  }
};

TEST_F(EmbeddedTest, OnlyAWriteMakesTheFile) {
  std::string value;
  std::vector<std::string> keys;
  std::map<std::string, std::string> values;
  EXPECT_EQ(mailConfGet("key", value), 0);
  EXPECT_TRUE(Wrap::ls("", keys));
  EXPECT_EQ(mailConfList(values), 0);
  EXPECT_TRUE(Wrap::removeKey("key"));
  EXPECT_TRUE(Cluster::isClusterHealth(1));
  EXPECT_TRUE(fs::is_empty(root()));
  EXPECT_EQ(mailConfSet("key", "value", true, 0), 0);
  EXPECT_TRUE(fs::exists(Store()));
}

TEST_F(EmbeddedTest, AnEqualValueIsNotWrittenAgain) {
  ASSERT_EQ(mailConfSetMany({{"a", "1"}, {"b", ""}}), 0);
  ASSERT_TRUE(Wrap::setFile("f", "/path"));
  const std::string before = Read(kStore);
  EXPECT_EQ(mailConfSetMany({{"a", "1"}, {"b", ""}}), 0);
  EXPECT_EQ(mailConfSet("a", "1", true, 0), 0);
  EXPECT_TRUE(Wrap::setFile("f", "/path"));
  EXPECT_EQ(Read(kStore), before) << "the change counter in the header moved";
}

TEST_F(EmbeddedTest, FollowsTheRootAndAReplacedFile) {
  ASSERT_EQ(mailConfSet("key", "first", true, 0), 0);
  Write("/other/x", "");
  setenv("MDOMAIN_ROOT", (root() + "/other").c_str(), 1);
  EXPECT_TRUE(mailConfCheckKeyValue("key", ""));
  ASSERT_EQ(mailConfSet("key", "second", true, 0), 0);
  setenv("MDOMAIN_ROOT", root().c_str(), 1);
  EXPECT_TRUE(mailConfCheckKeyValue("key", "first"));
  fs::rename(root() + "/other" + kStore, Store());
  EXPECT_TRUE(mailConfCheckKeyValue("key", "second"));
  fs::remove(Store());
  EXPECT_TRUE(mailConfCheckKeyValue("key", ""));
}

// What an operation reads within a view, and what it compares its changes with.
TEST_F(EmbeddedTest, AViewIsOfOneMomentAndChangesAreOfTheirOwn) {
  using korvmailserver::KeyStoreView;
  const auto set_elsewhere = [](const std::string& key, const std::string& value) {
    return InChild([&] { return mailConfSet(key, value, true, 0) == 0; });
  };
  const auto names = [] {
    std::vector<std::string> keys;
    return Wrap::ls("", keys) ? keys.size() : 99;
  };
  ASSERT_EQ(mailConfSetMany({{"a", "1"}, {"additional_domain-1", "x"}}), 0);
  {
    const KeyStoreView view(KeyStoreView::Kind::kOneMoment);
    EXPECT_TRUE(mailConfCheckKeyValue("a", "1"));
    ASSERT_TRUE(set_elsewhere("a", "2") && set_elsewhere("b", "2"));
    EXPECT_TRUE(mailConfCheckKeyValue("a", "1"));
    EXPECT_EQ(names(), 1U);
    {
      const KeyStoreView current(KeyStoreView::Kind::kCurrent);
      EXPECT_TRUE(mailConfCheckKeyValue("a", "2"));
      ASSERT_TRUE(set_elsewhere("a", "3"));
      EXPECT_TRUE(mailConfCheckKeyValue("a", "3"));
    }
    EXPECT_TRUE(mailConfCheckKeyValue("a", "3"));
    ASSERT_TRUE(set_elsewhere("a", "4"));
    EXPECT_EQ(mailConfSet("a", "3", true, 0), 0) << "no longer what is stored";
    EXPECT_TRUE(InChild([] { return mailConfCheckKeyValue("a", "3"); }));
    EXPECT_TRUE(Wrap::removeKey("b"));
    EXPECT_EQ(names(), 1U);
    ASSERT_TRUE(set_elsewhere("c", "5"));
    EXPECT_TRUE(Cluster::isClusterHealth(1));
    EXPECT_EQ(names(), 2U) << "of the moment when the lock was taken";
    fs::remove(Store());
    EXPECT_EQ(mailConfSet("a", "3", true, 0), 0);
    EXPECT_EQ(names(), 1U);
  }
  // A key that is no text is not the text of its bytes, in a view either.
  korvmailserver::Connection other;
  ASSERT_EQ(other.Open(Store(), korvmailserver::Connection::Mode::kWrite, 0), SQLITE_OK);
  ASSERT_EQ(other.Run("INSERT INTO key_table VALUES(x'64', '', '6')"), SQLITE_OK);
  const KeyStoreView view(KeyStoreView::Kind::kOneMoment);
  EXPECT_TRUE(mailConfCheckKeyValue("d", "") && mailConfCheckKeyValue("a", "3"));
}

// What a view knows of this process's changes is not read again.
TEST_F(EmbeddedTest, AViewFollowsTheChangesOfItsProcess) {
  using korvmailserver::KeyStoreView;
  using Content = std::pair<std::vector<std::string>, std::map<std::string, std::string>>;
  const std::vector<std::string> names = {"a", "b", "additional_domain-1", "additional_domain-2"};
  const auto read = [&names] {
    Content content;
    for (const char* tree : {"", "virtual_domain"}) {
      std::vector<std::string> keys;
      EXPECT_TRUE(Wrap::ls(tree, keys));
      content.first.insert(content.first.end(), keys.begin(), keys.end());
    }
    EXPECT_EQ(mailConfGetMany(names, content.second), 0);
    return content;
  };
  ASSERT_EQ(mailConfSet("z", "1", true, 0), 0);
  std::mt19937 random(7);
  for (int round = 0; round < 200; ++round) {
    const KeyStoreView view(KeyStoreView::Kind::kOneMoment);
    read();
    const std::string& name = names[random() % names.size()];
    const std::string value = std::to_string(random() % 3);
    const auto change = [&, removes = random() % 3 == 0] {
      return removes ? Wrap::removeKey(name) : mailConfSet(name, value, true, 0) == 0;
    };
    ASSERT_TRUE(round % 20 == 0 ? InChild(change) : change());
    ASSERT_TRUE(change());
    if (round % 20 == 10) {
      ASSERT_TRUE(InChild(change)) << "behind this process's own, for the next view";
      continue;
    }
    const Content seen = read();
    const KeyStoreView current(KeyStoreView::Kind::kCurrent);
    EXPECT_EQ(seen, read()) << "round " << round;
  }
}

TEST_F(EmbeddedTest, AFileThatIsNoStoreIsRefusedAndKept) {
  const std::string garbage(8192, 'g');
  Write(kStore, garbage);
  ExpectAllRefused("keystore.db", true);
  EXPECT_EQ(Read(kStore), garbage);
  fs::remove(Store());
  fs::create_directory(Store());
  ExpectAllRefused("keystore.db", true);
  {
    using korvmailserver::KeyStoreView;
    const KeyStoreView view(KeyStoreView::Kind::kOneMoment);
    ExpectAllRefused("keystore.db", true);
  }
  fs::remove(Store());
  EXPECT_EQ(mailConfSet("key", "value", true, 0), 0) << "mended without a new process";
}

TEST_F(EmbeddedTest, ALockedStoreIsGivenUpAndNotHarmed) {
  ASSERT_EQ(mailConfSet("key", "value", true, 0), 0);
  korvmailserver::Connection other;
  ASSERT_EQ(other.Open(Store(), korvmailserver::Connection::Mode::kWrite, 0), SQLITE_OK);
  ASSERT_EQ(other.Run("BEGIN EXCLUSIVE"), SQLITE_OK);
  ExpectAllRefused("locked", true);
  other.Close();
  EXPECT_TRUE(mailConfCheckKeyValue("key", "value"));
}

TEST_F(EmbeddedTest, AReadOnlyStoreIsReadAndNotWritten) {
  ASSERT_EQ(mailConfSet("key", "value", true, 0), 0);
  chmod(root().c_str(), 0755);
  chmod(Store().c_str(), 0444);
  Write("/etc/mailserver-domain/host.ini", "");  // another settings file: a fresh connection
  const uid_t uid = geteuid();
  const bool dropped = uid == 0 && seteuid(65534) == 0;
  EXPECT_TRUE(mailConfCheckKeyValue("key", "value"));
  ExpectAllRefused("read-only", false);
  EXPECT_TRUE(mailConfCheckKeyValue("key", "value"));
  if (dropped) {
    EXPECT_EQ(seteuid(uid), 0);
  }
}

TEST_F(EmbeddedTest, TwoProcessesLoseNothing) {
  EXPECT_EQ(FailingChildren(2,
                            [](int child) {
                              bool all = true;
                              for (int i = 0; i < 40; ++i) {
                                int result = -1;
                                for (int attempt = 0; result != 0 && attempt < 50; ++attempt) {
                                  result =
                                      mailConfSet(std::to_string(child) + "-" + std::to_string(i),
                                                  "x", true, 0);
                                }
                                all = all && result == 0;
                              }
                              return all;
                            }),
            0);
  std::map<std::string, std::string> values;
  EXPECT_EQ(mailConfList(values), 0);
  EXPECT_EQ(values.size(), 80U);
}

TEST_F(EmbeddedTest, BadHostSettingsRefuseEveryCallWithOneText) {
  Write("/etc/mailserver-domain/host.ini", "[keystore]\nport = none\n");
  ExpectAllRefused("/etc/mailserver-domain/host.ini:2: port must be a number", true);
  EXPECT_FALSE(fs::exists(Store()));
  Write("/etc/mailserver-domain/host.ini", "[keystore]\n");
  EXPECT_EQ(mailConfSet("key", "value", true, 0), 0);
}

}  // namespace test
