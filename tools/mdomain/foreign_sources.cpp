#include "tools/mdomain/foreign_sources.h"

#include <filesystem>
#include <sstream>
#include <string_view>

#include "platform/include/postfix_map.h"
#include "tools/mdomain/document.h"
#include "tools/mdomain/status.h"

namespace mdomain {
namespace {

constexpr size_t kLargest = size_t{256} << 20;  // a dump of some hundred thousand mailboxes

[[noreturn]] void TooLarge(const std::string& file) {
  throw Failure(kRefused, file + " is larger than " + std::to_string(kLargest >> 20) + " MiB");
}

// Files that people hand over as they were stored or sent, by what they begin with.
constexpr struct {
  std::string_view begin;
  const char* what;
} kOtherForms[] = {
    {"\x1f\x8b", "is compressed: gunzip it before"},
    {"BZh", "is compressed: bunzip2 it before"},
    {"\xfd"
     "7zXZ",
     "is compressed: unxz it before"},
    {"\x28\xb5\x2f\xfd", "is compressed: unzstd it before"},
    {"PGDMP", "is in pg_dump's own format: make it with --format=plain"},
    {"\xff\xfe", "is UTF-16: convert it with iconv -f UTF-16 -t UTF-8"},
    {"\xfe\xff", "is UTF-16: convert it with iconv -f UTF-16 -t UTF-8"},
};

void RequireText(const std::string& file, const std::string& bytes) {
  for (const auto& form : kOtherForms) {
    if (bytes.compare(0, form.begin.size(), form.begin) == 0) {
      throw Failure(kRefused, file + " " + form.what);
    }
  }
}

}  // namespace

std::string ReadForeignFile(const std::string& file) {
  std::error_code error;
  const auto size = file == "-" ? 0 : std::filesystem::file_size(file, error);
  if (!error && size > kLargest) {
    TooLarge(file);
  }
  std::string bytes = ReadInput(file, kNotFound);
  if (bytes.size() > kLargest) {
    TooLarge(file);
  }
  RequireText(file, bytes);
  return bytes;
}

AccountOfMailbox::AccountOfMailbox(std::string form, const std::string& list,
                                   const std::string& list_name)
    : form_(std::move(form)) {
  for (size_t at = form_.find('%'); at != std::string::npos; at = form_.find('%', at + 2)) {
    if (at + 1 == form_.size() || (form_[at + 1] != 'u' && form_[at + 1] != 'd')) {
      throw Failure(kUsage, "--account-form: \"" + form_ + "\" has a % without u or d behind it");
    }
  }
  std::istringstream lines(list);
  std::string line;
  for (size_t number = 1; std::getline(lines, line); ++number) {
    const std::string problem = AddLine(line);
    if (!problem.empty()) {
      std::string place = list_name;
      place.append(", line ").append(std::to_string(number)).append(": ");
      throw Failure(kRefused, place + problem);
    }
  }
}

std::string AccountOfMailbox::AddLine(const std::string& line) {
  std::istringstream words(line);
  std::string address;
  std::string account;
  std::string more;
  if (!(words >> address) || address[0] == '#') {
    return "";
  }
  if (address.find('@') == std::string::npos || !(words >> account) || words >> more) {
    return "must be an address and an account";
  }
  const bool is_new = by_address_.emplace(korvmailserver::FoldMapKey(address), account).second;
  return is_new ? "" : "\"" + address + "\" stands there twice";
}

std::string AccountOfMailbox::Of(const std::string& address) const {
  const auto listed = by_address_.find(korvmailserver::FoldMapKey(address));
  if (listed != by_address_.end()) {
    return listed->second;
  }
  const size_t at = address.rfind('@');
  std::string account;
  for (size_t i = 0; i < form_.size(); ++i) {
    if (form_[i] != '%') {
      account += form_[i];
    } else if (form_[++i] == 'u') {
      account += address.substr(0, at);
    } else if (at != std::string::npos) {
      account += address.substr(at + 1);
    }
  }
  return account;
}

}  // namespace mdomain
