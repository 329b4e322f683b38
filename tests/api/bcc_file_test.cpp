// Rule files: export and import are inverse, and a file with a bad line writes nothing.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/api/bcc_fixture.h"

namespace {

using ::testing::ElementsAre;

constexpr const char* kFile = "/rules.txt";

class BccFileTest : public test::BccFixture {
 protected:
  void SetUp() override {
    BccFixture::SetUp();
    bcc_ = BCC::getInstance();
    ASSERT_NE(nullptr, bcc_);
  }

  std::string Export(int domain_id, int type) {
    EXPECT_EQ(0, bcc_->exportBCC(domain_id, type, root() + kFile));
    return Read(kFile);
  }

  BCC* bcc_ = nullptr;
};

TEST_F(BccFileTest, ExportAndImportAreInverse) {
  std::list<BccInfo> rules = {
      {"bob", BCC_RECIPIENT, "archive"},
      {"o'brien", BCC_RECIPIENT, "Copy@Example.COM"},
      {"müller", BCC_RECIPIENT, "jürgen@bücher.example"},
      {"a@bücher.example", BCC_RECIPIENT, "x@xn--bcher-kva.example"},
      {"b@xn--bcher-kva.example", BCC_RECIPIENT, "archive"},
      // Two spellings of one address are two rules.
      {"c@bücher.example", BCC_RECIPIENT, "one"},
      {"c@xn--bcher-kva.example", BCC_RECIPIENT, "two"},
      // Spellings that no conversion gives back.
      {"d@BÜCHER.example", BCC_RECIPIENT, "archive"},
      {"e@EXAMPLE.com", BCC_RECIPIENT, "archive"},
      {"e@example.com", BCC_RECIPIENT, "archive"},
      {"ü@straße.example", BCC_RECIPIENT, "archive"},
      {"DOM\\John Smith", BCC_RECIPIENT, "Mary Ann"},
      {"example.com/a@b", BCC_RECIPIENT, "with/slash"},
      {std::string(64, 'l') + "@" + std::string(63, 'd') + ".example", BCC_RECIPIENT, "archive"}};
  for (int i = 0; i < 2500; ++i) {
    const std::string name = "user" + std::to_string(i);
    rules.push_back({i % 3 == 0 ? name : name + (i % 3 == 1 ? "@bücher.example" : "@example.com"),
                     BCC_RECIPIENT, "copy" + std::to_string(i) + "@bücher.example"});
  }
  ASSERT_EQ(0, bcc_->setBCC(3, rules));
  ASSERT_EQ(0, bcc_->setBCC(4, {{"other", BCC_RECIPIENT, "domain"}}));
  ASSERT_EQ(0, bcc_->setBCC(3, {{"other", BCC_SENDER, "type"}}));

  const std::string first = Export(3, BCC_RECIPIENT);
  EXPECT_EQ(2514, std::count(first.begin(), first.end(), '\n'));
  EXPECT_NE(std::string::npos, first.find("\na@xn--bcher-kva.example x@xn--bcher-kva.example\n"));
  EXPECT_NE(std::string::npos, first.find("\nmüller jürgen@xn--bcher-kva.example\n"));
  EXPECT_NE(std::string::npos, first.find("\nc@bücher.example one\n"));
  ASSERT_EQ(0, bcc_->deleteAllBCC(3));
  ASSERT_EQ(0, bcc_->importBCC(3, BCC_RECIPIENT, root() + kFile));
  EXPECT_EQ(first, Export(3, BCC_RECIPIENT));
  EXPECT_EQ(Rules(3).size(), 2514U);
  EXPECT_THAT(Rules(4), ElementsAre("other 0 domain"));
}

TEST_F(BccFileTest, ExportsByNameDescendingAndConvertsDomains) {
  ASSERT_EQ(
      0, bcc_->setBCC(1, {{"bücher.example", BCC_DOMAIN, "all"}, {"a.example", BCC_DOMAIN, "x"}}));
  EXPECT_EQ("xn--bcher-kva.example all\na.example x\n", Export(1, BCC_DOMAIN));
  EXPECT_EQ("", Export(1, BCC_SENDER));
}

TEST_F(BccFileTest, ExportReportsWhatCannotBeWritten) {
  for (const char* name :
       {"two words ", "two \"words\"", "line\nend", "tab\tname", "#comment", ""}) {
    ASSERT_EQ(0, bcc_->deleteAllBCC(1));
    ASSERT_EQ(0, bcc_->setBCC(1, {{"good", 0, "x"}, {name, 0, "y"}}));
    Write(kFile, "old");
    EXPECT_GT(0, bcc_->exportBCC(1, 0, root() + kFile)) << name;
    EXPECT_TRUE(Logged("cannot stand in a file"));
    EXPECT_EQ("old", Read(kFile));
  }
  ASSERT_EQ(0, bcc_->deleteAllBCC(1));
  ASSERT_EQ(0, bcc_->setBCC(1, {{"a", 0, "x@-bad-"}}));
  EXPECT_EQ("a x@-bad-\n", Export(1, 0));
  EXPECT_TRUE(Logged("failed to convert bcc destination [x@-bad-] to punycode"));
  EXPECT_GT(0, bcc_->exportBCC(1, 0, root() + "/missing/file"));
  EXPECT_TRUE(Logged(root() + "/missing/file: No such file"));
  TakeLog();
}

TEST_F(BccFileTest, ExportReplacesFilesOnly) {
  namespace fs = std::filesystem;
  ASSERT_EQ(0, bcc_->setBCC(1, {{"a", 0, "x"}}));
  Write("/old", "old");
  fs::create_symlink(root() + "/old", root() + "/link");
  fs::create_symlink(root() + "/new", root() + "/nowhere");
  for (const char* place : {"/link", "/nowhere", ""}) {
    EXPECT_GT(0, bcc_->exportBCC(1, 0, root() + place)) << place;
    EXPECT_TRUE(Logged("open file " + root() + place + " fail"));
    TakeLog();
  }
  EXPECT_EQ("old", Read("/old"));
  EXPECT_TRUE(fs::is_symlink(root() + "/link") && fs::is_symlink(root() + "/nowhere"));
  // A pipe gets the lines and stays a pipe.
  const std::string pipe = root() + "/pipe";
  ASSERT_EQ(0, mkfifo(pipe.c_str(), 0600));
  const int reader = open(pipe.c_str(), O_RDWR);
  char bytes[8] = {};
  EXPECT_EQ(0, bcc_->exportBCC(1, 0, pipe));
  EXPECT_EQ(4, read(reader, bytes, sizeof(bytes)));
  close(reader);
  EXPECT_STREQ("a x\n", bytes);
  EXPECT_TRUE(fs::is_fifo(pipe));
  // Whatever the umask.
  const mode_t old_mask = umask(0);
  EXPECT_EQ(0, bcc_->exportBCC(1, 0, root() + "/old"));
  umask(old_mask);
  EXPECT_EQ(fs::perms::owner_read | fs::perms::owner_write,
            fs::status(root() + "/old").permissions());
}

TEST_F(BccFileTest, ReadsWhatPeopleWrite) {
  Write(kFile,
        "\xEF\xBB\xBF# from the old server\r\n"
        "\r\n"
        "  a@example.com\t \tcopy@example.org  \r\n"
        "\t# indented comment with words\n"
        "b@bücher.example archive\n"
        "DOM\\carol DOM\\dave\n"
        "a@example.com later\n"
        "e@xn--bcher-kva.example #1");
  ASSERT_EQ(0, bcc_->importBCC(1, 0, root() + kFile));
  EXPECT_THAT(Rules(1), ElementsAre("DOM\\carol 0 DOM\\dave", "a@example.com 0 later",
                                    "b@bücher.example 0 archive", "e@xn--bcher-kva.example 0 #1"));
}

TEST_F(BccFileTest, OneBadLineRefusesTheFile) {
  const std::string long_name(300, 'n');
  const std::vector<std::string> bad = {"alone",
                                        "three fields here",
                                        "a..b@example.com copy",
                                        "a@-x- copy",
                                        "a@ copy",
                                        "@example.com copy",
                                        "na\x01me copy",
                                        "name co\x7Fpy",
                                        "name cop\ry",
                                        std::string("name co\0py", 10),
                                        "na\xFFme copy",
                                        "name \xC3",
                                        "\"quoted\"@example.com copy",
                                        "name a@example.com,b@example.com",
                                        "name \"|/bin/sh\"",
                                        "name \"two words",
                                        "name \"two words\"x",
                                        "\"two words@example.com\" copy",
                                        long_name + " copy",
                                        "a@" + long_name + ".example copy",
                                        "name " + std::string(5000, ' ') + "copy",
                                        "a\\b\\c copy"};
  std::string text = "good copy\n";
  for (const std::string& line : bad) {
    text += line + "\n";
  }
  Write(kFile, text);
  ASSERT_EQ(0, bcc_->setBCC(1, {{"good", 0, "before"}}));
  EXPECT_EQ(-2, bcc_->importBCC(1, 0, root() + kFile));
  for (size_t i = 0; i < bad.size(); ++i) {
    EXPECT_TRUE(Logged(root() + kFile + ":" + std::to_string(i + 2) + ": ")) << bad[i];
  }
  EXPECT_FALSE(Logged(root() + kFile + ":1: "));
  EXPECT_TRUE(Logged("import list fail, type: 0"));
  EXPECT_THAT(Rules(1), ElementsAre("good 0 before"));
  // What is no domain is no name of a rule for one.
  Write(kFile, "bob@example.com copy\n");
  EXPECT_EQ(-2, bcc_->importBCC(1, BCC_DOMAIN, root() + kFile));
  TakeLog();
}

// "#" may begin an account or a local part, but would hide the rule's line.
TEST_F(BccFileTest, NoRuleMayBecomeACommentOrAnEmptyLine) {
  for (const char* name : {"#a", "#a@example.com", "\uFEFFa", "", " a"}) {
    EXPECT_NE("", BCC::CheckRule({name, BCC_RECIPIENT, "copy"})) << name;
  }
  EXPECT_EQ("", BCC::CheckRule({"a#", BCC_RECIPIENT, "#copy"}));
}

TEST_F(BccFileTest, ImportTellsAMissingFile) {
  EXPECT_EQ(-1, bcc_->importBCC(0, root() + "/missing"));
  EXPECT_TRUE(Logged("open file error, " + root() + "/missing"));
  EXPECT_EQ(-1, bcc_->importBCC(0, root()));
  TakeLog();
}

}  // namespace
