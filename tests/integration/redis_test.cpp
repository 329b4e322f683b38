// The Redis key store against real servers, which redis_server.sh and redis_sentinel.sh start:
// 16379 (primary), 16380 and 16381 (replicas), sentinels on 26379 to 26381. SCRATCH is their
// folder, with password files in it.
#include <hiredis/hiredis.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

#include "platform/include/db_handler.h"
#include "platform/include/node_files.h"
#include "tests/keystore/conformance.h"

namespace test {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using korvmailserver::PublishedFile;
using korvmailserver::PullPublishedFile;
using korvmailserver::PullResult;

// For what comes as soon as the machine gets to it.
constexpr double kPatience = 60;
const char kHostIni[] = "/etc/mailserver-domain/host.ini";

std::string Scratch() {
  const char* folder = getenv("SCRATCH");
  return folder == nullptr ? "/nonexistent" : folder;
}

double SecondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

// Settings of a store that nobody else uses.
std::string Settings(const std::string& lines, const std::string& password = "right") {
  static int number = 0;
  return "[keystore]\nbackend = redis\npassword_file = " + Scratch() + "/" + password +
         "\nprefix = mail:" + std::to_string(getpid()) + "-" + std::to_string(++number) + ":\n" +
         lines;
}

std::string ServerSettings() {
  return Settings("port = 16379\ndatabase = 3\n");
}

std::string SentinelSettings(const std::string& lines = "min_replicas = 1\n") {
  return Settings("sentinels = 127.0.0.1:1, 127.0.0.1:26380, 127.0.0.1:26381\nmaster = mail\n" +
                  lines);
}

const StoreCase kServer{"tcp", ServerSettings};
const StoreCase kSocket{"socket", [] {
                          return Settings(
                              "user = publisher\nsocket = " + Scratch() + "/16379/redis.sock\n",
                              "publisher");
                        }};
const StoreCase kSentinels{"found", [] { return SentinelSettings(); }};
const auto kName = [](const auto& store) { return store.param.name; };
INSTANTIATE_TEST_SUITE_P(Server, KeyStoreConformance, ::testing::Values(kServer, kSocket), kName);
INSTANTIATE_TEST_SUITE_P(Sentinel, KeyStoreConformance, ::testing::Values(kSentinels), kName);

using Context = std::unique_ptr<redisContext, void (*)(redisContext*)>;

Context Connect(int port) {
  Context context(redisConnect("127.0.0.1", port), redisFree);
  if (port < 20000) {  // the sentinels have no password
    freeReplyObject(redisCommand(context.get(), "AUTH s3cret"));
  }
  return context;
}

std::string Command(int port, const std::string& command) {
  const Context context = Connect(port);
  auto* reply = static_cast<redisReply*>(redisCommand(context.get(), command.c_str()));
  std::string text = reply != nullptr && reply->str != nullptr ? reply->str : "";
  freeReplyObject(reply);
  return text;
}

long long Info(const std::string& field) {
  const std::string text = Command(16379, "INFO all");
  const size_t position = text.find(field + ":");
  return position == std::string::npos ? -1 : atoll(text.c_str() + position + field.size() + 1);
}

pid_t ServerPid(int port) {
  std::ifstream file(Scratch() + "/" + std::to_string(port) + "/pid");
  pid_t pid = 0;
  file >> pid;
  return pid;
}

class RedisServerTest : public RootTest {
 protected:
  using Wrap = KORV::POSTARA_SERVER::PostaraServerBACKENDWrap;
  using Cluster = KORV::POSTARA_SERVER::KORVMailNodeCluster;

  void Use(const std::string& settings) { Write(kHostIni, settings); }

  // A write, a removal and a health check fail with one line each that holds `reason`.
  void ExpectWritesRefused(const std::string& reason) {
    EXPECT_LT(mailConfSet("key", "new", true, 0), 0);
    EXPECT_FALSE(Wrap::removeKey("key"));
    EXPECT_FALSE(Cluster::isClusterHealth(1));
    const std::vector<LogLine> lines = TakeLog();
    ASSERT_EQ(lines.size(), 3U);
    for (const LogLine& line : lines) {
      EXPECT_NE(line.text.find(reason), std::string::npos) << line.text;
    }
    EXPECT_EQ(lines[2].level, 1) << "an unhealthy store is no error";
  }
};

TEST_F(RedisServerTest, RefusedLoginsSayWhy) {
  const std::string plain = "[keystore]\nbackend = redis\nport = 16379\n";
  const std::vector<std::pair<std::string, std::string>> cases = {
      {Settings("port = 16379\n", "wrong"), "redis 127.0.0.1:16379: AUTH refused: WRONGPASS"},
      {plain, "NOAUTH"},
      {plain + "user = publisher\nprefix = other:\npassword_file = " + Scratch() + "/publisher\n",
       "NOPERM"},
      {Settings("port = 16378\n"), "cannot connect: Connection refused"}};
  for (const auto& [settings, reason] : cases) {
    Use(settings);
    ExpectWritesRefused(reason);
    std::string value;
    EXPECT_LT(mailConfGet("key", value), 0);
    EXPECT_TRUE(Logged(reason));
  }
}

TEST_F(RedisServerTest, AReplicaIsReadAndTakesNoWrites) {
  const std::string primary = Settings("port = 16379\n");
  Use(primary);
  ASSERT_EQ(mailConfSet("key", "value", true, 0), 0);
  std::string replica = primary;
  replica.replace(replica.find("16379"), 5, "16380");
  Use(replica + "# another stamp\n");
  const auto start = Clock::now();
  while (!mailConfCheckKeyValue("key", "value") && SecondsSince(start) < kPatience) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  EXPECT_TRUE(mailConfCheckKeyValue("key", "value")) << "after " << SecondsSince(start) << " s";
  ExpectWritesRefused("is a replica of 127.0.0.1:16379 and takes no writes");
  EXPECT_LT(mailConfSet("key", "value", true, 0), 0) << "an equal value is no excuse";
  EXPECT_TRUE(Logged("takes no writes"));
}

TEST_F(RedisServerTest, ABrokenConnectionIsOpenedAgainAndNoSignalIsRaised) {
  Use(ServerSettings());
  struct sigaction before = {};
  sigaction(SIGPIPE, nullptr, &before);
  ASSERT_EQ(before.sa_handler, SIG_DFL);
  for (int i = 0; i < 5; ++i) {
    ASSERT_EQ(mailConfSet("key", std::to_string(i), true, 0), 0);
    Command(16379, "CLIENT KILL TYPE normal");
    EXPECT_TRUE(mailConfCheckKeyValue("key", std::to_string(i)));
    Command(16379, "CLIENT KILL TYPE normal");
  }
}

TEST_F(RedisServerTest, AHungServerHoldsACallNoLongerThanTheTimeouts) {
  Use(Settings("port = 16379\nconnect_timeout = 1\ncommand_timeout = 1\n"));
  ASSERT_EQ(mailConfSet("key", "value", true, 0), 0);
  kill(ServerPid(16379), SIGSTOP);
  for (int i = 0; i < 2; ++i) {  // on the kept connection, then on a new one
    const auto start = Clock::now();
    EXPECT_LT(mailConfSet("key", "other", true, 0), 0);
    EXPECT_LT(SecondsSince(start), 10) << "two tries of a second each, on a busy machine";
    EXPECT_TRUE(Logged("no answer in time"));
  }
  kill(ServerPid(16379), SIGCONT);
  EXPECT_TRUE(mailConfCheckKeyValue("key", "value"));
}

TEST_F(RedisServerTest, PublishingManyDomainsTakesFewCommands) {
  Use(ServerSettings());
  std::vector<std::pair<std::string, std::string>> entries;
  entries.reserve(1000);
  for (int i = 0; i < 1000; ++i) {
    entries.emplace_back("additional_domain-" + std::to_string(i), "a.example, b.example");
  }
  long long before = Info("total_commands_processed");
  ASSERT_EQ(mailConfSetMany(entries), 0);
  EXPECT_LT(Info("total_commands_processed") - before, 20);
  before = Info("total_commands_processed");
  ASSERT_EQ(mailConfSetMany(entries), 0);
  EXPECT_LT(Info("total_commands_processed") - before, 10);
}

class RedisServerFilesTest : public RedisServerTest {
 protected:
  const std::string kFolder = "/var/packages/Postara-Server/etc/";
  const std::string kKey = "mailserver_domain_db";
  const std::string kFile = "file_DOMAIN.db";
  const std::string settings_ = ServerSettings();

  RedisServerFilesTest() {
    Use(settings_);
    Write("/second" + std::string(kHostIni), settings_);
  }
  // As another machine does it.
  PullResult Pull(const std::string& key) const {
    setenv("MDOMAIN_ROOT", (root() + "/second").c_str(), 1);
    const PullResult result = PullPublishedFile(key);
    setenv("MDOMAIN_ROOT", root().c_str(), 1);
    return result;
  }
  bool Publish(const std::string& name) const {
    return Wrap::setFile(kKey, root() + kFolder + name);
  }
  // Publishes `bytes` as a file's content and pulls them; true when they arrived.
  bool Arrives(const std::string& bytes) {
    Write(kFolder + kFile, bytes);
    return Publish(kFile) && Pull(kKey) == PullResult::kReplaced &&
           Read("/second" + kFolder + kFile) == bytes;
  }
  // Changes the description of the published file behind its back.
  void Tamper(const char* field, const std::string& value) const {
    const size_t start = settings_.find("prefix = ") + 9;
    const std::string name =
        settings_.substr(start, settings_.find('\n', start) - start) + "file:" + kKey;
    const Context context = Connect(16379);
    freeReplyObject(redisCommand(context.get(), "SELECT 3"));
    freeReplyObject(redisCommand(context.get(), "HSET %s %s %b", name.c_str(), field, value.data(),
                                 value.size()));
  }
};

TEST_F(RedisServerFilesTest, ContentOfEverySizeArrivesAndIsRecorded) {
  EXPECT_TRUE(Arrives(std::string("\0zero\r\n", 7)));
  EXPECT_TRUE(Arrives(""));
  for (const size_t size : {(1 << 20) - 1, 1 << 20, (1 << 20) + 1, 5 << 20}) {
    EXPECT_TRUE(Arrives(std::string(size, 's'))) << size;
  }
  EXPECT_EQ(Pull(kKey), PullResult::kUnchanged);
  EXPECT_EQ(PullPublishedFile(kKey), PullResult::kPublishedHere);
  EXPECT_EQ(Pull("unknown"), PullResult::kFailed);
  EXPECT_TRUE(Logged("no file is published as unknown"));
  std::vector<PublishedFile> files;
  std::vector<korvmailserver::NodeFile> nodes;
  ASSERT_TRUE(korvmailserver::ListPublishedFiles(files));
  ASSERT_TRUE(korvmailserver::ListNodeFiles(nodes));
  ASSERT_EQ(files.size(), 1U);
  ASSERT_EQ(nodes.size(), 1U);
  EXPECT_EQ(files[0].path, kFolder + kFile);
  EXPECT_EQ(files[0].size, 5 << 20);
  EXPECT_EQ(nodes[0].digest, files[0].digest);
  EXPECT_EQ(nodes[0].node, files[0].node + "/second");
  EXPECT_TRUE(Wrap::removeKey(kKey));
  ASSERT_TRUE(korvmailserver::ListPublishedFiles(files));
  EXPECT_TRUE(files.empty());
  EXPECT_FALSE(Publish("missing"));
  EXPECT_TRUE(Logged("cannot read " + root() + kFolder + "missing"));
  EXPECT_FALSE(Wrap::exist(kKey));
}

TEST_F(RedisServerFilesTest, OnlyNewContentIsSent) {
  Write(kFolder + kFile, std::string(3 << 20, 'x'));
  ASSERT_TRUE(Publish(kFile));
  const long long before = Info("total_net_input_bytes");
  EXPECT_TRUE(Publish(kFile));
  fs::rename(root() + kFolder + kFile, root() + kFolder + "moved_DOMAIN.db");
  EXPECT_TRUE(Publish("moved_DOMAIN.db"));
  EXPECT_LT(Info("total_net_input_bytes") - before, 10000);
  EXPECT_EQ(Pull(kKey), PullResult::kReplaced);
  EXPECT_EQ(Read("/second" + kFolder + "moved_DOMAIN.db").size(), 3U << 20);
}

TEST_F(RedisServerFilesTest, ADatabaseIsPublishedAsItsLastCommittedState) {
  fs::create_directories(root() + kFolder);
  DBHandler db(root() + kFolder + "a_DOMAIN.db",
               "CREATE TABLE t(x); INSERT INTO t VALUES(1); PRAGMA user_version = 4;");
  DBHandler pulled(root() + "/second" + kFolder + "a_DOMAIN.db", "");
  ASSERT_EQ(db.connect(), 0);
  ASSERT_EQ(db.exeCmds({"BEGIN IMMEDIATE; INSERT INTO t VALUES(2)"}, false), 0);
  for (const int rows : {1, 2}) {
    ASSERT_TRUE(Publish("a_DOMAIN.db"));
    EXPECT_EQ(Pull(kKey), PullResult::kReplaced);
    ASSERT_EQ(pulled.connect(), 0);
    EXPECT_EQ(pulled.GetTableDataCount("t"), rows);
    pulled.disconnect();
    if (rows == 1) {
      ASSERT_EQ(db.exeCmds({"COMMIT"}, false), 0);
    }
  }
  const long long before = Info("total_net_input_bytes");
  ASSERT_TRUE(Publish("a_DOMAIN.db"));
  EXPECT_LT(Info("total_net_input_bytes") - before, 2000) << "the same state has the same digest";
}

TEST_F(RedisServerFilesTest, WhatTheStoreSaysIsNotTrusted) {
  Write("/second" + kFolder + kFile, "old");
  Write(kFolder + kFile, "new");
  ASSERT_TRUE(Publish(kFile));
  const std::vector<std::array<const char*, 3>> changes = {
      {"0", "bad", "damaged"}, {"0", "longer", "incomplete"}, {"size", "2000000", "incomplete"}};
  for (const auto& [field, value, want] : changes) {
    Tamper(field, value);
    EXPECT_EQ(Pull(kKey), PullResult::kFailed);
    EXPECT_TRUE(Logged("the content of " + kKey + " is " + want));
  }
  EXPECT_EQ(Read("/second" + kFolder + kFile), "old");
}

// Otherwise whoever writes to the store could put a program of their own where root runs it.
TEST_F(RedisServerFilesTest, TheStoreChoosesNeitherPathNorMode) {
  Write(kFolder + kFile, "new");
  chmod((root() + kFolder + kFile).c_str(), 04777);
  ASSERT_TRUE(Publish(kFile));
  EXPECT_EQ(Pull(kKey), PullResult::kReplaced);
  struct stat info {};
  ASSERT_EQ(stat((root() + "/second" + kFolder + kFile).c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0644U);
  for (const char* path :
       {"/etc/passwd", "", "/var/packages/Postara-Server/target/bin/korv_bcc_map",
        "/var/packages/Postara-Server/etc/mailserver.db",
        "/var/packages/Postara-Server/etc/_DOMAIN.db",
        "/var/packages/Postara-Server/etc/.hidden_DOMAIN.db",
        "/var/packages/Postara-Server/etc/../x_DOMAIN.db",
        "/var/packages/Postara-Server/etc/a\nb_DOMAIN.db"}) {
    Tamper("path", path);
    EXPECT_EQ(Pull(kKey), PullResult::kFailed) << path;
    EXPECT_TRUE(Logged("file " + kKey + ": [")) << path;
  }
  const std::pair<const char*, const char*> others[] = {
      {"sync_disclaimer_content_file-1", "disclaimer_content/domain-2"},
      {"sync_disclaimer_content_file-", "disclaimer_content/domain-"},
      {"sync_disclaimer_content_file-01", "disclaimer_content/domain-01"},
      {"bcc_db", "alias.db"},
      {"unknown", "mailserver.db"}};
  for (const auto& [key, path] : others) {
    Write(kFolder + path, "new");
    ASSERT_TRUE(Wrap::setFile(key, root() + kFolder + path));
    EXPECT_EQ(Pull(key), PullResult::kFailed) << key;
    EXPECT_TRUE(Logged(std::string("file ") + key + ": [" + kFolder + path)) << key;
    EXPECT_FALSE(fs::exists(root() + "/second" + kFolder + path));
  }
}

TEST_F(RedisServerFilesTest, APullReplacesNoLinkAndSweepsWhatAKilledOneLeft) {
  Write(kFolder + kFile, "new");
  ASSERT_TRUE(Publish(kFile));
  Write("/second/victim", "old");
  Write("/second" + kFolder + ".mdomain-new-abcdef", "half");
  fs::create_symlink(root() + "/second/victim", root() + "/second" + kFolder + kFile);
  EXPECT_EQ(Pull(kKey), PullResult::kFailed);
  EXPECT_TRUE(Logged("Too many levels of symbolic links"));
  EXPECT_EQ(Read("/second/victim"), "old");
  EXPECT_FALSE(fs::exists(root() + "/second" + kFolder + ".mdomain-new-abcdef"));
}

class RedisSentinelTest : public RedisServerTest {
 protected:
  // Writes numbered keys, with `disturb` after kSome of them, until a write has failed and, a few
  // seconds later, as many came through again. No key that was reported as written may be lost.
  template <typename Disturb>
  void WriteAround(const Disturb& disturb) {
    Use(SentinelSettings("min_replicas = 1\nconnect_timeout = 1\ncommand_timeout = 1\n"));
    std::vector<std::string> written;
    size_t before = 0;
    bool disturbed = false;
    auto failed = Clock::now();
    const auto start = failed;
    for (int i = 0; before == 0 || written.size() < before + kSome || SecondsSince(failed) < 3;
         ++i) {
      ASSERT_LT(SecondsSince(start), 2 * kPatience)
          << written.size() << " writes, " << before << " of them before the last that failed";
      if (written.size() == kSome && !disturbed) {
        disturb();
        disturbed = true;
      }
      const std::string key = "additional_domain-" + std::to_string(i);
      if (mailConfSet(key, "value", true, 0) == 0) {
        written.push_back(key);
      } else if (disturbed) {
        before = written.size();
        failed = Clock::now();
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    TakeLog();
    ExpectAllThere(written);
  }

  static constexpr size_t kSome = 200;

 private:
  void ExpectAllThere(const std::vector<std::string>& written) {
    std::map<std::string, std::string> values;
    ASSERT_EQ(mailConfGetMany(written, values), 0);
    for (const auto& [key, value] : values) {
      EXPECT_EQ(value, "value") << key << " was reported as written";
    }
    std::vector<std::string> keys;
    EXPECT_TRUE(Wrap::ls("virtual_domain", keys));
    EXPECT_GE(keys.size(), written.size());
    EXPECT_TRUE(Cluster::isClusterHealth(1));
  }
};

TEST_F(RedisSentinelTest, TooFewReplicasRefuseAWriteAndAreUnhealthy) {
  Use(SentinelSettings("min_replicas = 3\ncommand_timeout = 1\n"));
  ExpectWritesRefused("2 of the 3 replicas");
  Use(SentinelSettings("min_replicas = 2\n"));
  EXPECT_EQ(mailConfSet("key", "value", true, 0), 0);
  EXPECT_TRUE(Cluster::isClusterHealth(1));
}

TEST_F(RedisSentinelTest, OrderedFailoverLosesNothingThatWasReported) {
  WriteAround([] { Command(26379, "SENTINEL FAILOVER mail"); });
}

TEST_F(RedisSentinelTest, CrashFailoverLosesNothingThatWasReported) {
  pid_t primary = 0;
  for (const int port : {16379, 16380, 16381}) {
    const bool is_it = Command(port, "INFO").find("role:master") != std::string::npos;
    primary = is_it ? ServerPid(port) : primary;
  }
  ASSERT_GT(primary, 0);
  WriteAround([primary] { kill(primary, SIGKILL); });
}

}  // namespace test
