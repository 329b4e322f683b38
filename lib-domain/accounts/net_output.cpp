// One entry is put together line by line and kept when its empty line comes. The header says what
// a value with line ends could forge.
#include "lib-domain/accounts/net_output.h"

#include <algorithm>
#include <string_view>
#include <vector>

#include "lib-domain/base/log_line.h"
#include "lib-domain/base/text.h"
#include "platform/include/account.h"

namespace MDOMAIN::UTILS::INTERNAL {

namespace {

using Attributes = std::map<std::string, std::string>;

constexpr const char* kAccountNameAttr = "sAMAccountName";
constexpr const char* kLowerAccountNameAttr = "samaccountname";
constexpr const char* kWhiteSpace = " \t\r\n\v\f";

std::string Trimmed(const std::string& text) {
  const size_t first = text.find_first_not_of(kWhiteSpace);
  if (first == std::string::npos) {
    return {};
  }
  return text.substr(first, text.find_last_not_of(kWhiteSpace) - first + 1);
}

// Takes lines off the front of a text; each comes with its line end.
class LineReader {
 public:
  explicit LineReader(std::string_view text) : rest_(text) {}
  bool Next(std::string& line) {
    if (rest_.empty()) {
      return false;
    }
    const size_t end = rest_.find('\n');
    const size_t size = end == std::string_view::npos ? rest_.size() : end + 1;
    line = std::string(rest_.substr(0, size));
    rest_.remove_prefix(size);
    return true;
  }

 private:
  std::string_view rest_;
};

// The number in "Got 6 replies"; false without one. A number of more than nine digits is cut.
bool ReadAnnouncedCount(const std::string& line, size_t& count) {
  constexpr size_t kMaxDigits = 9;
  constexpr const char* kDigits = "0123456789";
  const size_t first = line.find_first_of(kDigits);
  if (first == std::string::npos) {
    return false;
  }
  const size_t end = std::min(line.find_first_not_of(kDigits, first), line.size());
  count = std::stoul(line.substr(first, std::min(end - first, kMaxDigits)));
  return true;
}

// The entry under construction and those that are done.
class EntryCollector {
 public:
  explicit EntryCollector(const std::set<std::string>& attributes) {
    for (const std::string& attribute : attributes) {
      const std::string lower_name = BASE::ToLowerAscii(attribute);
      if (lower_name != kAccountAttr && lower_name != kLowerAccountNameAttr) {
        asked_by_lower_name_[lower_name].push_back(attribute);
      }
    }
  }

  void AddLine(const std::string& line) {
    std::string name;
    std::string value;
    ParseDomainAttrVal(line, name, value);
    const std::string lower_name = BASE::ToLowerAscii(name);
    const auto asked = asked_by_lower_name_.find(lower_name);
    if (asked != asked_by_lower_name_.end()) {
      const bool is_address = lower_name == "mail" || lower_name == "mailnickname";
      for (const std::string& attribute : asked->second) {
        entry_[attribute] = is_address ? TrimDomainName(value) : value;
      }
    }
    if (name == kAccountNameAttr) {
      AddAccountName(value);
    }
  }

  void EndEntry() {
    const auto account = entry_.find(kAccountAttr);
    names_.push_back(account == entry_.end() ? std::string() : account->second);
    if (account != entry_.end() && !is_ambiguous_) {
      accounts_[names_.back()] = std::move(entry_);
    }
    entry_.clear();
    is_ambiguous_ = false;
  }

  size_t Count() const { return names_.size(); }
  // The first accounts beside entries without an account name: a value with an empty line cuts its
  // account's entry into one that has the name and one that has not.
  std::vector<std::string> BesideNameless() const {
    constexpr size_t kNamed = 10;
    std::vector<std::string> beside;
    for (size_t i = 0; i < names_.size() && beside.size() < kNamed; ++i) {
      const bool before = i > 0 && names_[i - 1].empty();
      const bool after = i + 1 < names_.size() && names_[i + 1].empty();
      if (!names_[i].empty() && (before || after)) {
        beside.push_back(names_[i]);
      }
    }
    return beside;
  }
  std::map<std::string, Attributes> Take() { return std::move(accounts_); }

 private:
  void AddAccountName(const std::string& name) {
    const auto [known, is_first] = entry_.emplace(kAccountAttr, name);
    if (!is_first && known->second != name) {
      LOG_ERROR("net entry with two account names, [%s] and [%s], is ignored",
                known->second.c_str(), name.c_str());
      is_ambiguous_ = true;
    }
  }

  std::map<std::string, std::vector<std::string>> asked_by_lower_name_;
  Attributes entry_;
  bool is_ambiguous_ = false;
  std::map<std::string, Attributes> accounts_;
  std::vector<std::string> names_;  // of all entries, empty where there is none
};

}  // namespace

void ParseDomainAttrVal(const std::string& line, std::string& name, std::string& value) {
  const size_t colon = line.find(':');
  name = Trimmed(line.substr(0, colon));
  value = colon == std::string::npos ? name : Trimmed(line.substr(colon + 1));
}

bool ParseNetSearchOutput(const std::string& output, const std::set<std::string>& attributes,
                          std::map<std::string, std::map<std::string, std::string>>& accounts) {
  LineReader lines(output);
  std::string count_line;
  std::string line;
  size_t announced = 0;
  if (!lines.Next(count_line) || !lines.Next(line) || !ReadAnnouncedCount(count_line, announced)) {
    LOG_ERROR("error net response");
    return false;
  }
  EntryCollector entries(attributes);
  while (lines.Next(line)) {
    if (line.front() == '\r' || line.front() == '\n') {
      entries.EndEntry();
    } else {
      entries.AddLine(line);
    }
  }
  if (entries.Count() != announced) {
    const std::string beside = BASE::Join(entries.BesideNameless(), ", ");
    LOG_ERROR("net announced [%zu] entries but gave [%zu]%s%s%s", announced, entries.Count(),
              beside.empty() ? "" : "; a value of one of these accounts may hold empty lines: [",
              beside.c_str(), beside.empty() ? "" : "]");
    return false;
  }
  accounts = entries.Take();
  return true;
}

}  // namespace MDOMAIN::UTILS::INTERNAL
