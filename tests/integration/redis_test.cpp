// The Redis key store against real servers, which redis_server.sh and redis_sentinel.sh start:
// 16379 (primary), 16380 and 16381 (replicas), sentinels on 26379 to 26381. SCRATCH is their
// folder, with password files in it.
#include <hiredis/hiredis.h>
#include <nettle/sha2.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

#include "lib-domain/api/domain.h"
#include "lib-domain/api/domain_user.h"
#include "lib-domain/api/mimedefang.h"
#include "lib-domain/api/updater.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/db/handler.h"
#include "lib-domain/sync/follow_pull.h"
#include "platform/include/db_handler.h"
#include "platform/include/nodes.h"
#include "tests/keystore/conformance.h"
#include "tests/support/domain_db.h"

namespace test {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using korvmailserver::PullPublication;
using korvmailserver::PullReport;
using korvmailserver::PullResult;
using korvmailserver::StoreStanding;
using korvmailserver::WhyUnpublished;

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
  void Manage(const std::string& settings) {
    Use(settings);
    StoreStanding seen;
    ASSERT_TRUE(korvmailserver::ReadStoreStanding(seen));
    ASSERT_TRUE(korvmailserver::BeginManaging(seen));
  }

  // A write and a removal are made here and not published, each with one line that holds `reason`.
  void ExpectUnpublished(const std::string& reason) {
    EXPECT_EQ(mailConfSet("key", "new", true, 0), 0);
    EXPECT_NE(WhyUnpublished().find(reason), std::string::npos) << WhyUnpublished();
    EXPECT_TRUE(Wrap::removeKey("key"));
    EXPECT_TRUE(Cluster::isClusterHealth(1));
    const std::vector<LogLine> lines = TakeLog();
    ASSERT_EQ(lines.size(), 2U);
    for (const LogLine& line : lines) {
      EXPECT_NE(line.text.find(reason), std::string::npos) << line.text;
      EXPECT_EQ(line.level, 1) << "the change was made";
    }
    korvmailserver::NodeStanding standing;
    EXPECT_TRUE(korvmailserver::ReadNodeStanding(standing));
    EXPECT_GT(standing.unpublished_since, 0);
  }
  // The value of a key in the store.
  static std::string Shared(const std::string& key) {
    korvmailserver::PublishedContent content;
    EXPECT_TRUE(korvmailserver::ReadStoreContent(content));
    return content.keys[key];
  }
};

TEST_F(RedisServerTest, RefusedLoginsSayWhy) {
  const std::string plain = "[keystore]\nbackend = redis\nport = 16379\n";
  const std::vector<std::pair<std::string, std::string>> cases = {
      {Settings("port = 16379\n", "wrong"), "AUTH refused: WRONGPASS"},
      {plain, "NOAUTH"},
      {plain + "user = publisher\nprefix = other:\npassword_file = " + Scratch() + "/publisher\n",
       "NOPERM"},
      {Settings("port = 16378\n"), "cannot connect: Connection refused"}};
  Manage(ServerSettings());
  for (const auto& [settings, reason] : cases) {
    Use(settings);
    ExpectUnpublished(reason);
  }
}

TEST_F(RedisServerTest, AReplicaIsReadAndTakesNoWrites) {
  const std::string primary = Settings("port = 16379\n");
  Manage(primary);
  ASSERT_EQ(mailConfSet("key", "value", true, 0), 0);
  std::string replica = primary;
  replica.replace(replica.find("16379"), 5, "16380");
  Use(replica + "# another stamp\n");
  const auto start = Clock::now();
  StoreStanding standing;
  while (korvmailserver::ReadStoreStanding(standing) && standing.version < 2 &&
         SecondsSince(start) < kPatience) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  EXPECT_EQ(Shared("key"), "value") << "after " << SecondsSince(start) << " s";
  ExpectUnpublished("is a replica of 127.0.0.1:16379 and takes no writes");
}

TEST_F(RedisServerTest, ABrokenConnectionIsOpenedAgainAndNoSignalIsRaised) {
  Manage(ServerSettings());
  struct sigaction before = {};
  sigaction(SIGPIPE, nullptr, &before);
  ASSERT_EQ(before.sa_handler, SIG_DFL);
  for (int i = 0; i < 5; ++i) {
    ASSERT_EQ(mailConfSet("key", std::to_string(i), true, 0), 0);
    Command(16379, "CLIENT KILL TYPE normal");
    EXPECT_EQ(Shared("key"), std::to_string(i));
    Command(16379, "CLIENT KILL TYPE normal");
  }
}

TEST_F(RedisServerTest, AHungServerHoldsACallNoLongerThanTheTimeouts) {
  Manage(Settings("port = 16379\nconnect_timeout = 1\ncommand_timeout = 1\n"));
  ASSERT_EQ(mailConfSet("key", "value", true, 0), 0);
  kill(ServerPid(16379), SIGSTOP);
  for (int i = 0; i < 2; ++i) {  // on the kept connection, then on a new one
    const auto start = Clock::now();
    EXPECT_EQ(mailConfSet("key", "other", true, 0), 0);
    EXPECT_LT(SecondsSince(start), 10) << "two tries of a second each, on a busy machine";
    EXPECT_TRUE(Logged("no answer in time"));
  }
  kill(ServerPid(16379), SIGCONT);
  EXPECT_EQ(Shared("key"), "value");
  korvmailserver::NodeStanding standing;
  {
    const korvmailserver::PublicationScope scope;
    EXPECT_EQ(mailConfSet("key", "next", true, 0), 0);
    EXPECT_EQ(mailConfSet("key", "last", true, 0), 0);
    EXPECT_EQ(Shared("key"), "value") << "the scope publishes at its end";
  }
  EXPECT_EQ(WhyUnpublished(), "");
  EXPECT_EQ(Shared("key"), "last");
  EXPECT_TRUE(korvmailserver::ReadNodeStanding(standing));
  EXPECT_EQ(standing.unpublished_since, 0);
}

TEST_F(RedisServerTest, PublishingManyDomainsTakesFewCommands) {
  Manage(ServerSettings());
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
  EXPECT_LT(Info("total_commands_processed") - before, 15);
}

class RedisServerFilesTest : public RedisServerTest {
 protected:
  const std::string kFolder = "/var/packages/Postara-Server/etc/";
  const std::string kKey = "mailserver_domain_db";
  const std::string kFile = "file_DOMAIN.db";
  const std::string settings_ = ServerSettings();

  RedisServerFilesTest() {
    Write("/second" + std::string(kHostIni), settings_);
    Manage(settings_);
    OnSecond([] { EXPECT_TRUE(korvmailserver::BecomeMember()); });
  }
  // As another machine does it.
  template <typename Work>
  void OnSecond(const Work& work) const {
    setenv("MDOMAIN_ROOT", (root() + "/second").c_str(), 1);
    work();
    setenv("MDOMAIN_ROOT", root().c_str(), 1);
  }
  // What became of the domain database; failed, too, when the whole pull is.
  PullResult Pull(bool accept_older = false) {
    PullResult result = PullResult::kFailed;
    OnSecond([&] {
      report_ = {};
      changes_ = 0;
      const bool is_whole = PullPublication(accept_older, report_, [this] { ++changes_; });
      for (const auto& file : report_.files) {
        result = is_whole && file.key == kKey ? file.result : result;
      }
    });
    return result;
  }
  bool Publish(const std::string& name) const {
    return Wrap::setFile(kKey, root() + kFolder + name) && WhyUnpublished().empty();
  }
  // Publishes `bytes` as a file's content and pulls them; true when they arrived.
  bool Arrives(const std::string& bytes) {
    Write(kFolder + kFile, bytes);
    return Publish(kFile) && Pull() == PullResult::kReplaced &&
           Read("/second" + kFolder + kFile) == bytes;
  }
  // Runs a command on the server; "%s" is a name below the prefix.
  void Tamper(const char* command, const std::string& name, const std::string& field = "",
              const std::string& value = "") const {
    const size_t start = settings_.find("prefix = ") + 9;
    const std::string whole = settings_.substr(start, settings_.find('\n', start) - start) + name;
    const Context context = Connect(16379);
    freeReplyObject(redisCommand(context.get(), "SELECT 3"));
    freeReplyObject(redisCommand(context.get(), command, whole.data(), whole.size(), field.data(),
                                 field.size(), value.data(), value.size()));
  }

  PullReport report_;
  int changes_ = 0;
};

TEST_F(RedisServerFilesTest, ContentOfEverySizeArrivesAndIsRecorded) {
  EXPECT_TRUE(Arrives(std::string("\0zero\r\n", 7)));
  EXPECT_TRUE(Arrives(""));
  for (const size_t size : {(32 << 10) - 1, 32 << 10, (32 << 10) + 1, 5 << 20}) {
    EXPECT_TRUE(Arrives(std::string(size, 's'))) << size;
  }
  EXPECT_EQ(Pull(), PullResult::kUnchanged);
  PullReport own;
  EXPECT_FALSE(PullPublication(false, own)) << "it manages";
  EXPECT_TRUE(Logged("this machine does not pull"));
  std::vector<korvmailserver::NodeReport> nodes;
  korvmailserver::PublishedContent content;
  ASSERT_TRUE(korvmailserver::ListNodes(nodes));
  ASSERT_TRUE(korvmailserver::ReadStoreContent(content));
  ASSERT_EQ(nodes.size(), 1U);
  EXPECT_EQ(content.files[kKey].path, kFolder + kFile);
  EXPECT_EQ(content.files[kKey].size, 5 << 20);
  EXPECT_EQ(nodes[0].digests[kKey], content.files[kKey].digest);
  EXPECT_EQ(nodes[0].name, korvmailserver::NodeName() + "/second");
  EXPECT_TRUE(Wrap::removeKey(kKey));
  Pull();
  ASSERT_EQ(report_.files.size(), 1U);
  EXPECT_EQ(report_.files[0].result, PullResult::kRemoved);
  EXPECT_FALSE(fs::exists(root() + "/second" + kFolder + kFile));
  EXPECT_FALSE(Publish("missing"));
  EXPECT_TRUE(Logged("cannot read " + root() + kFolder + "missing"));
  EXPECT_FALSE(Wrap::exist(kKey));
}

TEST_F(RedisServerFilesTest, OnlyWhatIsNewIsSentAndFetched) {
  std::string bytes;
  for (int i = 0; i < 100; ++i) {
    bytes += std::string(32 << 10, static_cast<char>(i));
  }
  ASSERT_TRUE(Arrives(bytes));
  const auto moved = [](long long since) {
    return Info("total_net_input_bytes") + Info("total_net_output_bytes") - since;
  };
  long long before = moved(0);
  EXPECT_TRUE(Publish(kFile));
  EXPECT_LT(moved(before), 30000) << "nothing is new";
  bytes[40 << 10] = 'x';
  before = moved(0);
  EXPECT_TRUE(Arrives(bytes));
  EXPECT_LT(moved(before), 200000) << "one piece, there and back";
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
    EXPECT_EQ(Pull(), PullResult::kReplaced);
    ASSERT_EQ(pulled.connect(), 0);
    EXPECT_EQ(pulled.GetTableDataCount("t"), rows);
    pulled.disconnect();
    if (rows == 1) {
      ASSERT_EQ(db.exeCmds({"COMMIT"}, false), 0);
    }
  }
}

// A reader takes what was published, whole, or keeps what it has.
TEST_F(RedisServerFilesTest, WhatWasLostOrAlteredInTheStoreIsNotTakenAndMended) {
  ASSERT_EQ(mailConfSet("additional_domain-1", "a.example", true, 0), 0);
  ASSERT_TRUE(Arrives("first"));
  struct Case {
    const char* command;
    std::string name;
    std::string field;
    const char* want;
  };
  korvmailserver::PublishedContent content;
  const std::vector<Case> cases = {
      {"DEL %b", "pieces:" + kKey, "", "is incomplete"},
      {"DEL %b", "file:" + kKey, "", "not what was published"},
      {"DEL %b", "files", "", "not what was published"},
      {"DEL %b", "key:additional_domain-1", "", "not what was published"},
      {"DEL %b", "tree:virtual_domain", "", "not what was published"},
      {"SET %b %b", "key:additional_domain-1", "b.example", "not what was published"},
      {"HSET %b %b %b", "file:" + kKey, "size", "not what was published"},
      {"DEL %b", "state", "", "nothing is published"},
      {"SET %b %b", "pieces:" + kKey, "x", "is incomplete"},
      {"SET %b %b", "file:" + kKey, "x", "not what was published"},
      {"SET %b %b", "files", "x", "not what was published"},
      {"SET %b %b", "tree:virtual_domain", "x", "not what was published"},
      {"SET %b %b", "state", "x", "nothing is published"}};
  int number = 0;
  for (const Case& one : cases) {
    const std::string bytes = "content " + std::to_string(++number);
    const std::string kept = Read("/second" + kFolder + kFile);
    Write(kFolder + kFile, bytes);
    ASSERT_TRUE(Publish(kFile));
    Tamper(one.command, one.name, one.field, "7");
    EXPECT_EQ(Pull(), PullResult::kFailed) << one.name;
    EXPECT_TRUE(Logged(one.want)) << one.command << " " << one.name;
    EXPECT_EQ(Read("/second" + kFolder + kFile), kept);
    EXPECT_TRUE(Publish(kFile));
    EXPECT_EQ(Pull(), PullResult::kReplaced) << one.name;
    OnSecond([] { EXPECT_TRUE(mailConfCheckKeyValue("additional_domain-1", "a.example")); });
  }
}

// The list of machines is nothing that a publication is made of.
TEST_F(RedisServerFilesTest, ANameThatHoldsSomethingElseIsMendedAndSaid) {
  ASSERT_TRUE(Arrives("first"));
  std::vector<std::string> mended;
  for (const std::string name : {"nodes", "tree:virtual_domain", "pieces:mailserver_domain_db"}) {
    Tamper("SET %b %b", name, "x");
    ASSERT_TRUE(korvmailserver::PublishVerified(mended)) << name;
    ASSERT_FALSE(mended.empty()) << name;
    EXPECT_NE(mended[0].find(":" + name), std::string::npos) << mended[0];
    EXPECT_NE(mended[0].find("a value of another kind as mail:"), std::string::npos) << mended[0];
    ASSERT_TRUE(korvmailserver::PublishVerified(mended));
    EXPECT_TRUE(mended.empty()) << name << ": " << mended[0];
  }
  std::vector<korvmailserver::NodeReport> nodes;
  ASSERT_TRUE(korvmailserver::ListNodes(nodes));
  EXPECT_TRUE(nodes.empty());
  Tamper("SET %b %b", "node:" + korvmailserver::NodeName() + "/second", "x");
  ASSERT_TRUE(Arrives("second"));
  ASSERT_TRUE(korvmailserver::ListNodes(nodes));
  ASSERT_EQ(nodes.size(), 1U);
  EXPECT_GT(nodes[0].version, 0);
}

// A machine that watches looks every few seconds.
TEST_F(RedisServerFilesTest, AQuietFileIsReadOnceAndNothingIsWritten) {
  constexpr size_t kSize = 5 << 20;
  ASSERT_TRUE(Arrives(std::string(kSize, 's')));
  const auto is_read = [&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));  // until times tell something
    const auto bytes_read = [] {
      std::ifstream counters("/proc/self/io");  // "rchar: BYTES" comes first
      std::string name;
      size_t bytes = 0;
      counters >> name >> bytes;
      return bytes;
    };
    const size_t before = bytes_read();
    EXPECT_EQ(Pull(), PullResult::kUnchanged);
    EXPECT_EQ(changes_, 0);
    return bytes_read() - before >= kSize;
  };
  EXPECT_TRUE(is_read()) << "it had just been replaced";
  EXPECT_FALSE(is_read());
  Write("/second" + kFolder + kFile, std::string(kSize, 's'));
  EXPECT_TRUE(is_read()) << "somebody else may have written something";

  ASSERT_TRUE(Publish(kFile)) << "notes the times";
  const std::string store = Read(kFolder + "keystore.db");
  ASSERT_TRUE(Publish(kFile));
  EXPECT_EQ(Read(kFolder + "keystore.db"), store) << "the change counter in the header moved";
}

// What the local store refuses: the note before the publication, or the one after it.
TEST_F(RedisServerFilesTest, APublicationThatCannotBeNotedIsMadeAgain) {
  struct Case {
    const char* refused;
    bool is_published;
  };
  int number = 0;
  for (const Case& one : std::vector<Case>{{"token", false}, {"version", true}}) {
    const std::string value = std::to_string(++number);
    SqliteFile local(root() + kFolder + "keystore.db");
    const std::string version = local.Rows("SELECT value FROM node_table WHERE name='version'")[0];
    local.Run("CREATE TRIGGER refuse BEFORE INSERT ON node_table WHEN NEW.name = '" +
              std::string(one.refused) + "' AND NEW.value <> '" + version +
              "' BEGIN SELECT RAISE(ABORT, 'no room'); END");
    EXPECT_EQ(mailConfSet("key", value, true, 0), 0);
    EXPECT_EQ(WhyUnpublished().empty(), one.is_published) << WhyUnpublished();
    EXPECT_EQ(Shared("key") == value, one.is_published);
    EXPECT_TRUE(one.is_published || Logged("not published: no room"));
    local.Run("DROP TRIGGER refuse");
    EXPECT_EQ(mailConfSet("key", value, true, 0), 0);
    EXPECT_EQ(WhyUnpublished(), "");
    EXPECT_EQ(Shared("key"), value);
    StoreStanding standing;
    ASSERT_TRUE(korvmailserver::ReadStoreStanding(standing));
    EXPECT_TRUE(standing.is_own);
    EXPECT_EQ(local.Rows("SELECT value FROM node_table WHERE name='version'")[0],
              std::to_string(standing.version));
  }
}

// A piece with another content shows when it is read back.
TEST_F(RedisServerFilesTest, ADamagedPieceIsNotTakenAndIsMended) {
  ASSERT_TRUE(Arrives("first"));
  uint8_t digest[SHA256_DIGEST_SIZE];
  sha256_ctx context;
  sha256_init(&context);
  sha256_update(&context, 6, reinterpret_cast<const uint8_t*>("second"));
  sha256_digest(&context, sizeof(digest), digest);
  Write(kFolder + kFile, "second");
  ASSERT_TRUE(Publish(kFile));
  Tamper("HSET %b %b %b", "pieces:" + kKey,
         std::string(reinterpret_cast<const char*>(digest), sizeof(digest)), "secone");
  EXPECT_EQ(Pull(), PullResult::kFailed);
  EXPECT_TRUE(Logged("the content of " + kKey + " is damaged"));
  EXPECT_EQ(Read("/second" + kFolder + kFile), "first");
  std::vector<std::string> mended;
  ASSERT_TRUE(korvmailserver::PublishVerified(mended));
  EXPECT_EQ(mended, std::vector<std::string>{"the file " + kKey + " was damaged in the store"});
  EXPECT_EQ(Pull(), PullResult::kReplaced);
  ASSERT_TRUE(korvmailserver::PublishVerified(mended));
  EXPECT_TRUE(mended.empty());
}

TEST_F(RedisServerFilesTest, AnOlderPublicationIsTakenOnlyWhereThatIsSaid) {
  ASSERT_TRUE(Arrives("first"));
  Tamper("HSET %b %b %b", "state", "version", "1");
  Pull();
  EXPECT_TRUE(report_.is_older);
  EXPECT_EQ(report_.version, 1);
  EXPECT_EQ(Pull(true), PullResult::kUnchanged);
  EXPECT_FALSE(report_.is_older);
}

// Otherwise whoever writes to the store could put a program of their own where root runs it.
TEST_F(RedisServerFilesTest, TheStoreChoosesNeitherPathNorMode) {
  Write(kFolder + kFile, "new");
  chmod((root() + kFolder + kFile).c_str(), 04777);
  ASSERT_TRUE(Publish(kFile));
  EXPECT_EQ(Pull(), PullResult::kReplaced);
  struct stat info {};
  ASSERT_EQ(stat((root() + "/second" + kFolder + kFile).c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0644U);
}

TEST_F(RedisServerFilesTest, APullReplacesNoLinkAndSweepsWhatAKilledOneLeft) {
  Write(kFolder + kFile, "new");
  ASSERT_TRUE(Publish(kFile));
  Write("/second/victim", "old");
  Write("/second" + kFolder + ".mdomain-new-abcdef", "half");
  fs::create_symlink(root() + "/second/victim", root() + "/second" + kFolder + kFile);
  EXPECT_EQ(Pull(), PullResult::kFailed);
  EXPECT_TRUE(Logged("Too many levels of symbolic links"));
  EXPECT_EQ(Read("/second/victim"), "old");
  EXPECT_FALSE(fs::exists(root() + "/second" + kFolder + ".mdomain-new-abcdef"));
}

TEST_F(RedisServerFilesTest, WhoManagesIsComparedInEachPublication) {
  ASSERT_TRUE(Arrives("first"));
  StoreStanding seen;
  OnSecond([&] {
    EXPECT_LT(mailConfSet("key", "value", true, 0), 0) << "it pulls";
    EXPECT_TRUE(Logged("manages the domains (term 1), nothing is changed here"));
    ASSERT_TRUE(korvmailserver::ReadStoreStanding(seen));
    EXPECT_FALSE(seen.is_own);
    StoreStanding old = seen;
    --old.version;
    EXPECT_FALSE(korvmailserver::BeginManaging(old));
    EXPECT_TRUE(Logged("has just published"));
    EXPECT_TRUE(korvmailserver::BeginManaging(seen));
    EXPECT_EQ(mailConfSet("key", "value", true, 0), 0);
    EXPECT_EQ(WhyUnpublished(), "");
  });
  EXPECT_EQ(mailConfSet("key", "late", true, 0), 0);
  EXPECT_NE(WhyUnpublished().find("/second manages the domains (term 2)"), std::string::npos);
  EXPECT_EQ(Shared("key"), "value");
  EXPECT_LT(mailConfSet("key", "later", true, 0), 0) << "it knows now";
  EXPECT_TRUE(Logged("nothing is changed here"));
  korvmailserver::NodeStanding standing;
  ASSERT_TRUE(korvmailserver::ReadNodeStanding(standing));
  EXPECT_EQ(standing.role, korvmailserver::NodeRole::kReplaced);
  EXPECT_GT(standing.unpublished_since, 0);
  ASSERT_TRUE(korvmailserver::ReadStoreStanding(seen));
  EXPECT_TRUE(seen.is_followed) << "its last change was refused";
  ASSERT_TRUE(korvmailserver::BecomeMember());
  PullReport report;
  ASSERT_TRUE(PullPublication(false, report));
  EXPECT_TRUE(mailConfCheckKeyValue("key", "value"));
}

// A change writes a notice, the database, keys and files, and reconciling may add to them.
TEST_F(RedisServerFilesTest,
       AChangeOfTheModelIsOnePublicationAndItsUsersAreFlaggedWhereItIsPulled) {
  using MDOMAIN::API::Domain;
  const auto published = [] {
    StoreStanding standing;
    EXPECT_TRUE(korvmailserver::ReadStoreStanding(standing));
    return standing.version;
  };
  WriteAccounts("ann:x:1001:1500::/:/bin/false\n", "staff:x:2001:ann\n");
  int domain_idx = 0;
  MDOMAIN::RECORD::Domain one(-1, "one.example", "", "<a>", true, false, false);
  MDOMAIN::RECORD::Domain two(-1, "two.example", "", "<a>", true, false, false);
  Json::Value list(Json::arrayValue);
  list[0]["id"] = 1;
  list[0]["content_txt"] = "text";
  const std::vector<std::function<bool()>> changes = {
      [&] { return Domain().Create(one, domain_idx); },
      [&] { return Domain().Create(two, domain_idx); },
      [&] { return MDOMAIN::API::Updater().Refresh(); },
      [&] { return MimeDefang().SetDisclaimerList(2, list) == 0; },
      [&] { return MDOMAIN::API::DomainUser().Delete(2, {1001}); },
      [&] { return Domain().Delete({2}); },
  };
  for (size_t i = 0; i < changes.size(); ++i) {
    const long long before = published();
    EXPECT_TRUE(changes[i]());
    EXPECT_EQ(published(), before + 1) << "change " << i;
  }
  MDOMAIN::DB::DomainDBHandler::CloseDomainDBHandler();
  OnSecond([&] {
    MDOMAIN::UTILS::PullStart start;
    std::vector<std::string> failures;
    EXPECT_TRUE(MDOMAIN::UTILS::BeforePull(start));
    EXPECT_TRUE(PullPublication(false, report_));
    EXPECT_TRUE(MDOMAIN::UTILS::FollowPull(start, report_, failures));
    EXPECT_TRUE(fs::exists(MDOMAIN::PATHS::ChangedUserDir() + "1001"));
  });
}

// The store was lost after another machine took over, and the first one had not heard of that.
TEST_F(RedisServerFilesTest, APublicationThatNobodyWentOnFromIsKnown) {
  ASSERT_TRUE(Arrives("first"));
  StoreStanding seen;
  const auto on_second = [&](const char* value) {
    OnSecond([&] {
      ASSERT_TRUE(korvmailserver::ReadStoreStanding(seen));
      ASSERT_TRUE(seen.is_own || korvmailserver::BeginManaging(seen));
      EXPECT_EQ(mailConfSet("key", value, true, 0), 0);
      EXPECT_EQ(WhyUnpublished(), "");
    });
  };
  on_second("one");
  ASSERT_TRUE(korvmailserver::ReadStoreStanding(seen));
  EXPECT_TRUE(seen.is_followed);
  korvmailserver::NodeStanding standing;
  ASSERT_TRUE(korvmailserver::ReadNodeStanding(standing));
  EXPECT_EQ(standing.role, korvmailserver::NodeRole::kReplaced);
  ASSERT_TRUE(korvmailserver::BeginManaging(seen));
  OnSecond([&] { Tamper("DEL %b", "state"); });
  on_second("two");
  ASSERT_TRUE(korvmailserver::ReadStoreStanding(seen));
  EXPECT_TRUE(seen.is_own) << "of the later term";
  ASSERT_EQ(mailConfSet("key", "three", true, 0), 0);
  EXPECT_EQ(WhyUnpublished(), "");
  OnSecond([&] {
    ASSERT_TRUE(korvmailserver::ReadStoreStanding(seen));
    EXPECT_FALSE(seen.is_followed);
  });
}

// A store as version 1.0 left it.
TEST_F(RedisServerFilesTest, AStoreOfBeforeTermsIsTakenOverByTheMachineThatPublished) {
  for (const char* machine : {"", "/second"}) {
    fs::remove(root() + machine + kFolder + "keystore.db");
  }
  const std::string former = ServerSettings();
  const size_t start = former.find("prefix = ") + 9;
  const std::string prefix = former.substr(start, former.find('\n', start) - start);
  const Context context = Connect(16379);
  const auto fill = [&](const char* command, const std::string& a, const std::string& b = "") {
    freeReplyObject(redisCommand(context.get(), command, prefix.c_str(), a.data(), a.size(),
                                 b.data(), b.size()));
  };
  freeReplyObject(redisCommand(context.get(), "SELECT 3"));
  fill("SADD %stree: %b", "account_type");
  fill("SET %skey:account_type %b", "ldap");
  fill("SADD %sfiles %b", kKey);
  fill("HSET %sfile:mailserver_domain_db node %b", korvmailserver::NodeName());
  Use(former);
  Write("/second" + std::string(kHostIni), former + "# another\n");
  EXPECT_TRUE(mailConfCheckKeyValue("account_type", "ldap"));
  ASSERT_EQ(mailConfSet("key", "value", true, 0), 0);
  EXPECT_EQ(WhyUnpublished(), "");
  EXPECT_EQ(Shared("account_type"), "ldap");
  OnSecond([] {
    EXPECT_TRUE(korvmailserver::BecomeMember());
    PullReport report;
    EXPECT_TRUE(PullPublication(false, report));
    EXPECT_TRUE(mailConfCheckKeyValue("account_type", "ldap"));
  });
}

class RedisSentinelTest : public RedisServerTest {
 protected:
  // Writes numbered keys, with `disturb` after kSome of them, until a write has failed and, a few
  // seconds later, as many came through again. No key that was reported as written may be lost.
  template <typename Disturb>
  void WriteAround(const Disturb& disturb) {
    Manage(SentinelSettings("min_replicas = 1\nconnect_timeout = 1\ncommand_timeout = 1\n"));
    std::vector<std::string> written;
    size_t before = 0;
    bool disturbed = false;
    std::string why;
    auto failed = Clock::now();
    const auto start = failed;
    for (int i = 0; before == 0 || written.size() < before + kSome || SecondsSince(failed) < 3;
         ++i) {
      ASSERT_LT(SecondsSince(start), 2 * kPatience)
          << written.size() << " writes, " << before
          << " of them before the last that failed: " << why;
      if (written.size() == kSome && !disturbed) {
        disturb();
        disturbed = true;
      }
      const std::string key = "additional_domain-" + std::to_string(i);
      ASSERT_EQ(mailConfSet(key, "value", true, 0), 0);
      const std::string reason = WhyUnpublished();
      if (reason.empty()) {
        written.push_back(key);
      } else if (disturbed) {
        why = reason;
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
    korvmailserver::PublishedContent content;
    ASSERT_TRUE(korvmailserver::ReadStoreContent(content));
    for (const std::string& key : written) {
      EXPECT_EQ(content.keys[key], "value") << key << " was reported as published";
    }
  }
};

TEST_F(RedisSentinelTest, TooFewReplicasRefuseAWriteAndAreUnhealthy) {
  Manage(SentinelSettings("min_replicas = 2\n"));
  EXPECT_EQ(mailConfSet("key", "value", true, 0), 0);
  EXPECT_EQ(WhyUnpublished(), "");
  Use(SentinelSettings("min_replicas = 3\ncommand_timeout = 1\n"));
  ExpectUnpublished("2 of the 3 replicas");
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
