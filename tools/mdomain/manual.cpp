// manual.txt, taken apart line by line.
#include "tools/mdomain/manual.h"

#include <sstream>

#include "tools/mdomain/status.h"

namespace mdomain {

// The text of manual.txt, which the build makes a source of.
extern const char* const kManualText;

namespace {

class ManualReader {
 public:
  Manual Read() {
    std::istringstream lines(kManualText);
    std::string line;
    while (std::getline(lines, line)) {
      ReadLine(line);
    }
    EndItem();
    return manual_;
  }

 private:
  void ReadLine(const std::string& line) {
    if (line.empty()) {
      EndItem();
    } else if (line.rfind("    ", 0) == 0) {
      EndItem();
      example_->lines.push_back(line.substr(4));
    } else if (line[0] == ' ') {
      item_ += " " + line.substr(line.find_first_not_of(' '));
    } else if (line[0] != '%' && line[0] != '~') {  // a comment, or what the test prepares
      EndItem();
      item_ = line;
    }
  }

  // An item is complete when the next begins: its first word says what it is.
  void EndItem() {
    if (item_.empty()) {
      return;
    }
    const size_t blank = item_.find(' ');
    const std::string kind = item_.substr(0, blank);
    const std::string text = blank == std::string::npos ? "" : item_.substr(blank + 1);
    item_.clear();
    Add(kind, text);
  }

  void Add(const std::string& kind, const std::string& text) {
    if (kind == "=") {
      noun_ = &manual_.nouns[text];
    } else if (kind == "==") {
      command_ = &noun_->commands[text];
    } else if (kind == "about") {
      noun_->about.push_back(text);
    } else if (kind == "see") {
      noun_->see.push_back(text);
    } else if (kind == "json") {
      command_->json = text;
    } else if (kind == "word") {
      command_->words.push_back(Parted(text));
    } else if (kind == "example") {
      command_->examples.push_back({text, {}});
      example_ = &command_->examples.back();
    } else if (kind == "file") {
      (noun_ == nullptr ? manual_.files : noun_->files).push_back(Parted(text));
    } else if (kind == "number") {
      manual_.numbers.push_back(Parted(text));
    } else if (kind == "environment") {
      manual_.environment.push_back(Parted(text));
    } else if (kind == "date") {
      manual_.date = text;
    } else {
      throw Failure(kFailed, "the manual has a line \"" + kind + " " + text + "\"");
    }
  }

  // "TERM :: TEXT"
  static Meaning Parted(const std::string& text) {
    const size_t mark = text.find(" :: ");
    if (mark == std::string::npos) {
      throw Failure(kFailed, "the manual explains nothing in \"" + text + "\"");
    }
    return {text.substr(0, mark), text.substr(mark + 4)};
  }

  Manual manual_;
  NounManual* noun_ = nullptr;
  CommandManual* command_ = nullptr;
  Example* example_ = nullptr;
  std::string item_;
};

}  // namespace

Manual ReadManual() {
  return ManualReader().Read();
}

}  // namespace mdomain
