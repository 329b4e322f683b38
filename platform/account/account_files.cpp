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

// One line that should hold an entry.
struct Line {
  std::string where;  // "FILE: line 7"
  std::vector<std::string_view> fields;
  std::string damage;  // what makes the file suspect from here on; empty when nothing does
};

std::string DamageOf(std::string_view text, bool ended) {
  if (HasControlCharacter(text)) {
    return " has a control character";
  }
  return ended ? "" : " has no line end, so the file may have been cut";
}

bool HoldsEntry(std::string_view text) {
  const bool blank = text.find_first_not_of(" \t") == std::string_view::npos;
  return !blank && (text.find_first_of("#+-") != 0 || text.find('\0') != std::string_view::npos);
}

// Calls `take(line)` for each line that should hold an entry.
template <class Take>
void ForEachEntry(const AccountFile& file, const Take& take) {
  const std::string& bytes = file.bytes;
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
    if (HoldsEntry(text)) {
      take(Line{file.path + ": line " + std::to_string(number), Split(text, ':'),
                DamageOf(text, end < bytes.size())});
    }
  }
}

std::string NameOfBroken(std::string_view field) {
  return IsAccountName(field) ? std::string(field) : std::string();
}

// A line that is no account. Only one that has all its fields tells whom it hides.
void LeaveGap(const Line& line, unsigned int gid, UserTable& users) {
  const std::string why = line.where + " is no account";
  const std::string name = NameOfBroken(line.fields[0]);
  users.Skip(why, name, gid);
  if (name.empty() || gid == KORV_UNKNOWN_ID) {
    users.HideMemberships(why);
  }
}

// False when one of the members cannot be read.
bool TakeMembers(std::string_view list, GroupRow& group) {
  bool all = true;
  for (std::string_view member : Split(list, ',')) {
    if (IsAccountName(member)) {
      group.members.emplace_back(member);
    } else {
      all = all && member.empty();
    }
  }
  return all;
}

UserRow MakeUser(const std::vector<std::string_view>& fields) {
  UserRow user;
  user.name = fields[0];
  const std::string_view comment = fields[4];
  if (IsValidUtf8(comment) && !HasControlCharacter(comment)) {
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

void ParsePasswd(const AccountFile& file, const IdRanges& ranges, UserTable& users) {
  ForEachEntry(file, [&](const Line& line) {
    const std::vector<std::string_view>& fields = line.fields;
    unsigned int uid = KORV_UNKNOWN_ID;
    unsigned int gid = KORV_UNKNOWN_ID;
    if (!line.damage.empty()) {
      users.CutShort(line.where + line.damage);
    }
    const bool has_gid = fields.size() == 7 && ParseId(fields[3], gid);
    const bool is_account = has_gid && ParseId(fields[2], uid) && IsAccountName(fields[0]);
    if (!is_account && line.damage.empty()) {
      LeaveGap(line, gid, users);
    }
    if (!is_account) {
      return;
    }
    UserRow user = MakeUser(fields);
    user.uid = uid;
    user.gid = gid;
    user.listed = uid >= ranges.uid_min && uid <= ranges.uid_max;
    users.Add(std::move(user));
  });
}

void ParseGroup(const AccountFile& file, const IdRanges& ranges, GroupTable& groups) {
  ForEachEntry(file, [&](const Line& line) {
    const std::vector<std::string_view>& fields = line.fields;
    unsigned int gid = KORV_UNKNOWN_ID;
    if (fields.size() != 4 || !ParseId(fields[2], gid) || !IsAccountName(fields[0])) {
      groups.Skip(line.where + " is no group", NameOfBroken(fields[0]));
      return;
    }
    GroupRow group;
    group.name = fields[0];
    group.gid = gid;
    group.listed = (gid >= ranges.gid_min && gid <= ranges.gid_max) || group.name == "users";
    const bool all_members = TakeMembers(fields[3], group);
    if (!line.damage.empty() || !all_members) {
      group.members_hidden = line.where + (all_members || !line.damage.empty()
                                               ? line.damage
                                               : " names a member that cannot be read");
      groups.Skip(group.members_hidden, "");
    }
    groups.Add(std::move(group));
  });
}

}  // namespace korvmailserver::account
