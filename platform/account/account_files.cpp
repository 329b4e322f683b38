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

// The fields of a line, as many as an entry of passwd has, and how many there are; more only count.
struct Fields {
  std::array<std::string_view, 7> at;
  size_t count = 0;
};

Fields FieldsOf(std::string_view line) {
  Fields fields;
  while (true) {
    const size_t end = std::min(line.find(':'), line.size());
    if (fields.count < fields.at.size()) {
      fields.at[fields.count] = line.substr(0, end);
    }
    fields.count++;
    if (end == line.size()) {
      return fields;
    }
    line.remove_prefix(end + 1);
  }
}

// One line that should hold an entry.
struct Line {
  const AccountFile& file;
  size_t number;
  std::string_view text;
  const char* damage;  // what makes the file suspect from here on; empty when nothing does

  bool is_damaged() const { return *damage != '\0'; }
  std::string Where() const { return file.path + ": line " + std::to_string(number); }
};

const char* DamageOf(std::string_view text, bool ended) {
  if (!IsPrintableAscii(text) && HasControlCharacter(text)) {
    return " has a control character";
  }
  return ended ? "" : " has no line end, so the file may have been cut";
}

// Calls `take(line)` for each line that should hold an entry.
template <class Take>
void ForEachEntry(const AccountFile& file, const Take& take) {
  const std::string& bytes = file.bytes;
  size_t number = 0;
  size_t begin = 0;
  while (begin < bytes.size()) {
    const size_t end = std::min(bytes.find('\n', begin), bytes.size());
    const std::string_view text =
        WithoutCarriageReturn(std::string_view(bytes).substr(begin, end - begin));
    begin = end + 1;
    number++;
    if (HoldsEntry(text)) {
      take(Line{file, number, text, DamageOf(text, end < bytes.size())});
    }
  }
}

std::string NameOfBroken(std::string_view field) {
  return IsAccountName(field) ? std::string(field) : std::string();
}

// A line that is no account. Only one that has all its fields tells whom it hides.
void LeaveGap(const Line& line, UserTable& users) {
  const Fields fields = FieldsOf(line.text);
  const std::string why = line.Where() + " is no account";
  const std::string name = NameOfBroken(fields.at[0]);
  unsigned int gid = KORV_UNKNOWN_ID;
  if (fields.count == 7) {
    ParseId(fields.at[3], gid);
  }
  users.Skip(why, name, gid);
  if (name.empty() || gid == KORV_UNKNOWN_ID) {
    users.HideMemberships(why);
  }
}

// False when one of the members cannot be read.
bool TakeMembers(std::string_view list, GroupRow& group) {
  bool all = true;
  group.members.reserve(static_cast<size_t>(std::count(list.begin(), list.end(), ',')) + 1);
  while (true) {
    const size_t end = std::min(list.find(','), list.size());
    const std::string_view member = list.substr(0, end);
    if (IsAccountName(member)) {
      group.members.emplace_back(member);
    } else {
      all = all && member.empty();
    }
    if (end == list.size()) {
      return all;
    }
    list.remove_prefix(end + 1);
  }
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

std::string MailOfComment(std::string_view comment) {
  const size_t comma = comment.rfind(',');
  if (comma == std::string_view::npos) {
    return {};
  }
  const std::string_view last = comment.substr(comma + 1);
  const size_t at = last.find('@');
  const bool address = at != std::string_view::npos && at > 0 && at + 1 < last.size() &&
                       last.rfind('@') == at &&
                       last.find_first_of(" \t<>\"") == std::string_view::npos;
  return address ? std::string(last) : std::string();
}

std::string_view WithoutCarriageReturn(std::string_view line) {
  if (!line.empty() && line.back() == '\r') {
    line.remove_suffix(1);
  }
  return line;
}

bool HoldsEntry(std::string_view line) {
  const size_t first = line.find_first_not_of(" \t");
  if (first == std::string_view::npos) {
    return false;
  }
  const bool is_comment = line[0] == '#' || line[0] == '+' || line[0] == '-';
  return !is_comment || line.find('\0') != std::string_view::npos;
}

bool ReadUserLine(std::string_view line, const IdRanges& ranges, UserRow& user) {
  const Fields fields = FieldsOf(line);
  if (fields.count != 7 || !ParseId(fields.at[3], user.gid) || !ParseId(fields.at[2], user.uid) ||
      !IsAccountName(fields.at[0])) {
    return false;
  }
  user.name = fields.at[0];
  const std::string_view comment = fields.at[4];
  if (IsPlainText(comment)) {
    user.full_name = comment.substr(0, comment.find(','));
    user.mail = MailOfComment(comment);
  }
  user.listed = user.uid >= ranges.uid_min && user.uid <= ranges.uid_max;
  return true;
}

bool ReadGroupLine(std::string_view line, const IdRanges& ranges, GroupRow& group,
                   bool& all_members) {
  const Fields fields = FieldsOf(line);
  if (fields.count != 4 || !ParseId(fields.at[2], group.gid) || !IsAccountName(fields.at[0])) {
    return false;
  }
  group.name = fields.at[0];
  group.listed =
      (group.gid >= ranges.gid_min && group.gid <= ranges.gid_max) || group.name == "users";
  all_members = TakeMembers(fields.at[3], group);
  return true;
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

void ParsePasswd(const AccountFile& file, const IdRanges& ranges, UserTable& users) {
  users.Expect(static_cast<size_t>(std::count(file.bytes.begin(), file.bytes.end(), '\n')));
  ForEachEntry(file, [&](const Line& line) {
    if (line.is_damaged()) {
      users.CutShort(line.Where() + line.damage);
    }
    UserRow user;
    if (ReadUserLine(line.text, ranges, user)) {
      users.Add(std::move(user));
    } else if (!line.is_damaged()) {
      LeaveGap(line, users);
    }
  });
}

void ParseGroup(const AccountFile& file, const IdRanges& ranges, GroupTable& groups) {
  ForEachEntry(file, [&](const Line& line) {
    GroupRow group;
    bool all_members = false;
    if (!ReadGroupLine(line.text, ranges, group, all_members)) {
      groups.Skip(line.Where() + " is no group", NameOfBroken(FieldsOf(line.text).at[0]));
      return;
    }
    if (line.is_damaged() || !all_members) {
      group.members_hidden =
          line.Where() + (line.is_damaged() ? line.damage : " names a member that cannot be read");
      groups.Skip(group.members_hidden, "");
    }
    groups.Add(std::move(group));
  });
}

}  // namespace korvmailserver::account
