// The Redis key store against servers that do not behave: what they send never crashes a caller and
// never holds it longer than the time-outs.
#include <arpa/inet.h>
#include <dlfcn.h>
#include <poll.h>
#include <sqlite3.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "platform/include/mail_conf.h"
#include "platform/include/nodes.h"
#include "tests/support/fixture.h"

bool without_memory = false;

extern "C" int sqlite3_prepare_v2(sqlite3* db, const char* sql, int size, sqlite3_stmt** statement,
                                  const char** tail) {
  using Real = int (*)(sqlite3*, const char*, int, sqlite3_stmt**, const char**);
  static const Real real = reinterpret_cast<Real>(dlsym(RTLD_NEXT, "sqlite3_prepare_v2"));
  if (without_memory) {
    throw std::bad_alloc();
  }
  return real(db, sql, size, statement, tail);
}

namespace test {

using korvmailserver::ReadStoreStanding;
using korvmailserver::StoreStanding;

// A client gets an answer to each thing that it sends, byte by byte with a pause; with one, the
// last answer over and over. Then the connection is closed.
class OddServer {
 public:
  OddServer(std::vector<std::string> answers, int pause_ms)
      : answers_(std::move(answers)), pause_ms_(pause_ms) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(bind(listener_, reinterpret_cast<sockaddr*>(&address), size), 0);
    EXPECT_EQ(listen(listener_, 8), 0);
    getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size);
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] { Serve(); });
  }
  ~OddServer() {
    stop_ = true;
    thread_.join();
    close(listener_);
  }
  int port() const { return port_; }

 private:
  void Serve() {
    while (!stop_) {
      pollfd entry = {listener_, POLLIN, 0};
      const int client = poll(&entry, 1, 20) > 0 ? accept(listener_, nullptr, nullptr) : -1;
      if (client >= 0) {
        Talk(client);
        HangUp(client);
      }
    }
  }
  // Closing with bytes unread would reset the connection instead of ending it.
  void HangUp(int client) {
    shutdown(client, SHUT_WR);
    char rest[4096];
    pollfd entry = {client, POLLIN, 0};
    while (!stop_ && (poll(&entry, 1, 20) <= 0 || recv(client, rest, sizeof(rest), 0) > 0)) {
    }
    close(client);
  }
  void Talk(int client) {
    for (const std::string& answer : answers_) {
      char question[4096];
      if (recv(client, question, sizeof(question), 0) <= 0 || !Send(client, answer)) {
        return;
      }
    }
    while (pause_ms_ > 0 && !stop_ && Send(client, answers_.back())) {
    }
  }
  bool Send(int client, const std::string& answer) {
    for (size_t i = 0; i < answer.size() && !stop_; ++i) {
      if (send(client, &answer[i], 1, MSG_NOSIGNAL) < 0) {
        return false;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(pause_ms_));
    }
    return true;
  }

  const std::vector<std::string> answers_;
  const int pause_ms_;
  int listener_ = -1;
  int port_ = 0;
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

class RedisTest : public RootTest {
 protected:
  void Use(const std::string& lines) {
    Write("/etc/mailserver-domain/host.ini",
          "[keystore]\nbackend = redis\nconnect_timeout = 1\ncommand_timeout = 1\n" + lines);
  }
};

TEST_F(RedisTest, OddAnswersAreRefusedInTime) {
  struct Case {
    const char* name;
    std::vector<std::string> answers;
    int pause_ms;
    const char* want;
  };
  const std::string primary = "*3\r\n$6\r\nmaster\r\n:0\r\n*0\r\n";
  const std::vector<Case> cases = {
      {"closes at once", {}, 0, "login: "},
      {"another protocol", {"HTTP/1.1 400 Bad Request\r\n\r\n"}, 0, "not a Redis answer"},
      {"drips", {"*3\r\n"}, 300, "no answer in time"},
      {"endless text", {"+x"}, 100, "no answer in time"},
      {"no role", {"+OK\r\n"}, 0, "its role is \"\""},
      {"half a replica", {"*2\r\n$5\r\nslave\r\n$1\r\nh\r\n"}, 0, "its role is \"slave\""},
      {"a sentinel", {"*2\r\n$8\r\nsentinel\r\n*1\r\n$4\r\nmail\r\n"}, 0, "\"sentinel\""},
      {"still loading",
       {"-LOADING Redis is loading the dataset in memory\r\n"},
       0,
       "ROLE refused: LOADING"},
      {"values of a wrong kind", {primary, "+OK\r\n+OK\r\n"}, 0, "no list"},
      {"says too much", {primary + primary}, 0, "an answer to no question"},
      {"closes after the login", {primary}, 0, "server closed the connection"},
  };
  for (const Case& odd : cases) {
    const OddServer server(odd.answers, odd.pause_ms);
    Use("port = " + std::to_string(server.port()) + "\n");
    const auto start = std::chrono::steady_clock::now();
    StoreStanding standing;
    standing.manager = "untouched";
    EXPECT_FALSE(ReadStoreStanding(standing)) << odd.name;
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(15)) << odd.name;
    EXPECT_EQ(standing.manager, "untouched");
    EXPECT_TRUE(Logged(odd.want)) << odd.name << ": " << (log_.empty() ? "" : log_[0].text);
    EXPECT_TRUE(TakeLog().empty()) << odd.name << ": one line says it all";
  }
}

TEST_F(RedisTest, AHungSentinelLeavesTimeForTheNext) {
  const OddServer drips({"*2\r\n"}, 200);
  const OddServer knows_none({"*-1\r\n*0\r\n"}, 0);
  Use("master = mail\nsentinels = 127.0.0.1:" + std::to_string(drips.port()) +
      ", 127.0.0.1:" + std::to_string(knows_none.port()) + "\n");
  const auto start = std::chrono::steady_clock::now();
  StoreStanding standing;
  EXPECT_FALSE(ReadStoreStanding(standing));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(15));
  EXPECT_TRUE(Logged("127.0.0.1:" + std::to_string(knows_none.port()) + ": knows no mail"));
}

TEST_F(RedisTest, ANameThatDoesNotResolveIsSaid) {
  Use("host = no-such-host.invalid\n");
  StoreStanding standing;
  EXPECT_FALSE(ReadStoreStanding(standing));
  EXPECT_TRUE(Logged("cannot connect: "));
}

TEST_F(RedisTest, AStoreThatIsAwayKeepsNobodyFromReadingAndWriting) {
  Use("port = 1\n");
  EXPECT_EQ(mailConfSet("key", "value", true, 0), 0);
  std::string value;
  EXPECT_EQ(mailConfGet("key", value), 0);
  EXPECT_EQ(value, "value");
  EXPECT_NE(korvmailserver::WhyUnpublished().find("mdomain node manage"), std::string::npos);
}

// The scope ends in a destructor.
TEST_F(RedisTest, APublicationThatRunsOutOfMemoryIsUnpublishedAndNoMore) {
  Use("port = 1\n");
  {
    const korvmailserver::PublicationScope scope;
    EXPECT_EQ(mailConfSet("key", "value", true, 0), 0);
    without_memory = true;
  }
  without_memory = false;
  EXPECT_EQ(korvmailserver::WhyUnpublished(), "std::bad_alloc");
  EXPECT_TRUE(Logged("key store: not published: std::bad_alloc"));
  EXPECT_TRUE(mailConfCheckKeyValue("key", "value"));
}

TEST_F(RedisTest, AStoreThatIsNotSharedHasNoMachines) {
  korvmailserver::PullReport report;
  EXPECT_FALSE(korvmailserver::PullPublication(false, report));
  EXPECT_TRUE(Logged("keystore.db: this key store is not shared between machines"));
  korvmailserver::NodeStanding standing;
  EXPECT_TRUE(korvmailserver::ReadNodeStanding(standing));
  EXPECT_EQ(standing.role, korvmailserver::NodeRole::kAlone);
  EXPECT_EQ(mailConfSet("key", "value", true, 0), 0);
  EXPECT_EQ(TakeLog().size(), 0U);
}

}  // namespace test
