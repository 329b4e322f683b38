#include "platform/account/account_files.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <string_view>

#include "platform/account/account_field.h"
#include "platform/include/text.h"

namespace korvmailserver::account {

namespace {

std::vector<std::string_view> Split(std::string_view text, char separator) {
  std::vector<std::string_view> fields;
  size_t begin = 0;
  for (size_t end = text.find(separator); end != std::string_view::npos;
       end = text.find(separator, begin)) {
    fields.push_back(text.substr(begin, end - begin));
    begin = end + 1;
  }
  fields.push_back(text.substr(begin));
  return fields;
}

// Calls `line(fields, number)` for each line that should hold an entry.
template <class Line>
void ForEachEntry(const std::string& bytes, const Line& line) {
  size_t number = 0;
  size_t begin = 0;
  while (begin < bytes.size()) {
    const size_t end = std::min(bytes.find('\n', begin), bytes.size());
    std::string_view text(bytes.data() + begin, end - begin);
    begin = end + 1;
    number++;
    if (!text.empty() && text.back() == '\r') {
      text.remove_suffix(1);
    }
    const bool blank = text.find_first_not_of(" \t") == std::string_view::npos;
    if (!blank && text.find_first_of("#+-") != 0) {
      line(Split(text, ':'), number);
    }
  }
}

std::string NameOfBroken(std::string_view field) {
  return IsAccountName(field) ? std::string(field) : std::string();
}

std::string LineIs(size_t number, const char* what) {
  return "line " + std::to_string(number) + " is " + what;
}

UserRow MakeUser(const std::vector<std::string_view>& fields) {
  UserRow user;
  user.name = fields[0];
  const std::string_view comment = fields[4];
  if (IsValidUtf8(comment)) {
    user.full_name = comment.substr(0, comment.find(','));
    user.mail = MailOfComment(std::string(comment));
  }
  return user;
}

// `value` keeps its default when the word is no number.
void TakeNumber(const std::string& word, unsigned int& value) {
  char* end = nullptr;
  errno = 0;
  const unsigned long long number = std::strtoull(word.c_str(), &end, 0);
  const bool digits = !word.empty() && word[0] >= '0' && word[0] <= '9' && *end == '\0';
  if (digits && errno == 0 && number < KORV_UNKNOWN_ID) {
    value = static_cast<unsigned int>(number);
  }
}

}  // namespace

std::string MailOfComment(const std::string& comment) {
  const size_t comma = comment.rfind(',');
  if (comma == std::string::npos) {
    return {};
  }
  const std::string last = comment.substr(comma + 1);
  const size_t at = last.find('@');
  const bool address = at != std::string::npos && at > 0 && at + 1 < last.size() &&
                       last.rfind('@') == at && last.find_first_of(" \t<>\"") == std::string::npos;
  return address ? last : std::string();
}

IdRanges ParseLoginDefs(const std::string& bytes) {
  IdRanges ranges;
  const std::array<std::pair<const char*, unsigned int*>, 4> keys = {
      {{"UID_MIN", &ranges.uid_min},
       {"UID_MAX", &ranges.uid_max},
       {"GID_MIN", &ranges.gid_min},
       {"GID_MAX", &ranges.gid_max}}};
  constexpr const char* kBlank = " \t\r";
  for (std::string_view line : Split(bytes, '\n')) {
    line.remove_prefix(std::min(line.find_first_not_of(kBlank), line.size()));
    for (const auto& [key, value] : keys) {
      const std::string_view name(key);
      if (line.substr(0, name.size()) != name ||
          line.find_first_of(kBlank, name.size()) != name.size()) {
        continue;
      }
      std::string_view rest = line.substr(name.size());
      rest.remove_prefix(std::min(rest.find_first_not_of(kBlank), rest.size()));
      TakeNumber(std::string(rest.substr(0, rest.find_first_of(kBlank))), *value);
    }
  }
  return ranges;
}

void ParsePasswd(const std::string& bytes, const IdRanges& ranges, UserTable& users) {
  ForEachEntry(bytes, [&](const std::vector<std::string_view>& fields, size_t number) {
    unsigned int uid = KORV_UNKNOWN_ID;
    unsigned int gid = KORV_UNKNOWN_ID;
    const bool whole = fields.size() == 7;
    const bool has_gid = whole && ParseId(fields[3], gid);
    if (!has_gid || !ParseId(fields[2], uid) || !IsAccountName(fields[0])) {
      users.Skip(LineIs(number, "no account"), NameOfBroken(fields[0]), gid);
      return;
    }
    UserRow user = MakeUser(fields);
    user.uid = uid;
    user.gid = gid;
    user.listed = uid >= ranges.uid_min && uid <= ranges.uid_max;
    users.Add(std::move(user));
  });
}

void ParseGroup(const std::string& bytes, const IdRanges& ranges, GroupTable& groups) {
  ForEachEntry(bytes, [&](const std::vector<std::string_view>& fields, size_t number) {
    unsigned int gid = KORV_UNKNOWN_ID;
    if (fields.size() != 4 || !ParseId(fields[2], gid) || !IsAccountName(fields[0])) {
      groups.Skip(LineIs(number, "no group"), NameOfBroken(fields[0]));
      return;
    }
    GroupRow group;
    group.name = fields[0];
    group.gid = gid;
    group.listed = (gid >= ranges.gid_min && gid <= ranges.gid_max) || group.name == "users";
    for (std::string_view member : Split(fields[3], ',')) {
      if (IsAccountName(member)) {
        group.members.emplace_back(member);
      }
    }
    groups.Add(std::move(group));
  });
}

}  // namespace korvmailserver::account
