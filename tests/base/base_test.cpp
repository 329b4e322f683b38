// The helpers of every layer: log lines, codes, numbers, paths.
#include <gmock/gmock.h>

#include <cerrno>
#include <limits>

#include "lib-domain/base/error_code.h"
#include "lib-domain/base/log_line.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/base/progress.h"
#include "lib-domain/base/text.h"
#include "tests/support/fixture.h"

namespace {

using MDOMAIN::BASE::ConvertToInt;
using MDOMAIN::BASE::ConvertToUID;

class BaseTest : public test::RootTest {};

TEST_F(BaseTest, LineNamesSourceLineAndMessage) {
  const int line = __LINE__ + 1;
  LOG_NOTICE("Deleted users [%s] in domain_id: [%d]", "a, 100%, \"b\"", 7);
  const auto log = TakeLog();
  ASSERT_EQ(log.size(), 1U);
  EXPECT_EQ(log[0].level, 2);
  EXPECT_EQ(log[0].text, "tests/base/base_test:" + std::to_string(line) +
                             " Deleted users [a, 100%, \"b\"] in domain_id: [7]");
}

TEST_F(BaseTest, LongValueIsKeptAndLongFormatIsCut) {
  const std::string value(5000, 'v');
  LOG_ERROR("[%s]", value.c_str());
  EXPECT_TRUE(Logged("[" + value + "]"));
  char buffer[MDOMAIN::BASE::kLogBufferSize];
  MDOMAIN::BASE::FormatLogHead(buffer, "/elsewhere/lib-domain/api/domain.cpp", 12,
                               std::string(4000, 'f').c_str());
  EXPECT_EQ(std::string(buffer), "lib-domain/api/domain:12 " + std::string(2047 - 25, 'f'));
}

TEST_F(BaseTest, FilesOfOneUnitLogUnderOneName) {
  const std::pair<const char*, const char*> cases[] = {
      {"lib-domain/api/bcc/map.cpp", "lib-domain/api/bcc"},
      {"/a/lib-domain/control/domain_user_set.cpp", "lib-domain/control/domain_user"},
      {"lib-domain/control/domain_user.cpp", "lib-domain/control/domain_user"},
      {"lib-domain/accounts/net_output.cpp", "lib-domain/utils/default_alias_getter"},
      {"lib-domain/accounts/account_source.cpp", "lib-domain/accounts/account_source"}};
  for (const auto& [file, name] : cases) {
    EXPECT_EQ(MDOMAIN::BASE::SourcePath(file), name);
  }
}

TEST_F(BaseTest, ExceptionLogsItselfOnce) {
  const korvmailserver::LogException e(korvmailserver::ERR_INVALID_DOMAIN_NAME, "x", 3, "f", 7);
  EXPECT_STREQ(e.what(), "x");
  const auto log = TakeLog();
  ASSERT_EQ(log.size(), 1U);
  EXPECT_EQ(log[0].level, 3);
  EXPECT_EQ(log[0].text, "f:7 (3003) invalid domain name: x");
  const korvmailserver::LogException unknown(static_cast<korvmailserver::ErrorCode>(9999), "%s %n",
                                             3, "f", 7);
  EXPECT_TRUE(Logged("f:7 (9999) unknown error: %s %n"));
}

TEST_F(BaseTest, CodesReachTheApiAsItsNumbers) {
  const std::pair<int, unsigned int> cases[] = {{0, 0},       {2009, 5615}, {2109, 5634},
                                                {3002, 5618}, {3003, 5633}, {4009, 117},
                                                {9999, 117},  {-1, 117}};
  for (const auto& [code, api] : cases) {
    EXPECT_EQ(MDOMAIN::BASE::ToApiError(static_cast<korvmailserver::ErrorCode>(code)), api) << code;
  }
}

TEST_F(BaseTest, NumbersAreWholeTextsInRange) {
  const char* bad[] = {"", " 1", "1 ", "+1", "0x1", "1.5", "ten", "99999999999", "-2147483649"};
  for (const char* text : bad) {
    int value = 5;
    EXPECT_FALSE(ConvertToInt(text, value)) << text;
    EXPECT_EQ(value, 5) << text;
    unsigned int uid = 5;
    EXPECT_FALSE(ConvertToUID(text, uid)) << text;
    EXPECT_EQ(uid, 5U) << text;
  }
  int value = 0;
  EXPECT_TRUE(ConvertToInt("-2147483648", value));
  EXPECT_EQ(value, std::numeric_limits<int>::min());
  unsigned int uid = 0;
  EXPECT_TRUE(ConvertToUID("4294967295", uid));
  EXPECT_EQ(uid, 4294967295U);
  EXPECT_FALSE(ConvertToUID("4294967296", uid));
  EXPECT_FALSE(ConvertToUID("-1", uid));
  EXPECT_FALSE(ConvertToInt(std::string("1\0", 2), value));
}

TEST_F(BaseTest, PassesTellHowFarTheyAreToWhoeverListens) {
  std::string told;
  const auto pass = [] {
    MDOMAIN::BASE::Progress progress("counting", 2500);
    for (int i = 0; i < 2500; ++i) {
      progress.Step();
    }
  };
  pass();
  MDOMAIN::BASE::ListenToProgress([&told](const char* doing, size_t done, size_t total) {
    told += doing + std::to_string(done) + "/" + std::to_string(total) + " ";
  });
  pass();
  MDOMAIN::BASE::ListenToProgress({});
  pass();
  EXPECT_EQ(told, "counting1000/2500 counting2000/2500 ");
}

TEST_F(BaseTest, OnlyAsciiLettersChangeCase) {
  EXPECT_EQ(MDOMAIN::BASE::ToLowerAscii("ÄBC[@Z"), "Äbc[@z");
  EXPECT_TRUE(MDOMAIN::BASE::EqualsIgnoreCase("Info", "iNFO"));
  EXPECT_FALSE(MDOMAIN::BASE::EqualsIgnoreCase("[", "{"));
  EXPECT_FALSE(MDOMAIN::BASE::EqualsIgnoreCase("a", "ab"));
}

TEST_F(BaseTest, PathsFollowTheRoot) {
  EXPECT_EQ(MDOMAIN::PATHS::DkimPublicKey(3),
            root() + "/var/packages/Postara-Server/etc/dkim.key//dkim.public-3");
  setenv("MDOMAIN_ROOT", "/other/", 1);
  EXPECT_EQ(MDOMAIN::PATHS::ChangedUserDir(),
            "/other/var/run/postara_server/update_smtp_user_list/");
}

}  // namespace
