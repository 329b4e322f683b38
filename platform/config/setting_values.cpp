// One function per kind of value in the host settings.
#include "platform/config/setting_values.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/include/files.h"
#include "platform/include/scope_guard.h"

namespace korvmailserver {

namespace {

constexpr int kSentinelPort = 26379;

bool ParseNumber(const std::string& text, int smallest, int largest, int& number) {
  if (text.empty() || text.size() > 9 ||
      text.find_first_not_of("0123456789") != std::string::npos) {
    return false;
  }
  const int parsed = std::stoi(text);
  if (parsed < smallest || parsed > largest) {
    return false;
  }
  number = parsed;
  return true;
}

std::string FileName(const std::string& value, const std::string& folder) {
  return value.empty() || value[0] == '/' ? value : folder + "/" + value;
}

// HOST, HOST:PORT, [V6ADDRESS] or [V6ADDRESS]:PORT.
bool ParseAddress(const std::string& text, std::pair<std::string, int>& address) {
  address.second = kSentinelPort;
  size_t end = text.find(':');
  address.first = text.substr(0, end);
  if (text[0] == '[') {
    end = text.find(']');
    if (end == std::string::npos) {
      return false;
    }
    address.first = text.substr(1, end - 1);
    end = end + 1 == text.size() ? std::string::npos : end + 1;
  }
  return !address.first.empty() &&
         (end == std::string::npos ||
          (text[end] == ':' && ParseNumber(text.substr(end + 1), 1, 65535, address.second)));
}

}  // namespace

std::vector<std::string> SplitList(const std::string& text) {
  const char separators[] = ", \t\r\n";
  std::vector<std::string> items;
  size_t start = text.find_first_not_of(separators);
  while (start != std::string::npos) {
    const size_t end = text.find_first_of(separators, start);
    items.push_back(text.substr(start, end - start));
    start = text.find_first_not_of(separators, end);
  }
  return items;
}

SettingSetter TextSetting(std::string* field) {
  return [field](const std::string& value, const std::string&, std::string&) {
    *field = value;
    return true;
  };
}

SettingSetter NumberSetting(int* field, int smallest, int largest) {
  return [=](const std::string& value, const std::string&, std::string& problem) {
    problem =
        "must be a number from " + std::to_string(smallest) + " to " + std::to_string(largest);
    return ParseNumber(value, smallest, largest, *field);
  };
}

SettingSetter FlagSetting(bool* field) {
  return [field](const std::string& value, const std::string&, std::string& problem) {
    problem = "must be yes or no";
    *field = value == "yes";
    return value == "yes" || value == "no";
  };
}

SettingSetter OneOfSetting(std::string* field, const std::vector<std::string>& choices) {
  return [=](const std::string& value, const std::string&, std::string& problem) {
    problem = "must be one of:";
    for (const std::string& choice : choices) {
      problem += " " + choice;
    }
    *field = value;
    return std::find(choices.begin(), choices.end(), value) != choices.end();
  };
}

SettingSetter AttributeSetting(std::string* field, bool may_be_empty) {
  return [=](const std::string& value, const std::string&, std::string& problem) {
    problem = "must be an attribute name";
    const auto is_letter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
    *field = value;
    if (value.empty()) {
      return may_be_empty;
    }
    return is_letter(value[0]) && std::all_of(value.begin(), value.end(), [&](char c) {
             return is_letter(c) || (c >= '0' && c <= '9') || c == '-' || c == ';';
           });
  };
}

SettingSetter LdapUriSetting(std::string* field) {
  return [field](const std::string& value, const std::string&, std::string& problem) {
    problem = "must begin with ldap://, ldaps:// or ldapi://";
    *field = value;
    return value.rfind("ldap://", 0) == 0 || value.rfind("ldaps://", 0) == 0 ||
           value.rfind("ldapi://", 0) == 0;
  };
}

SettingSetter PathSetting(std::string* field) {
  return [field](const std::string& value, const std::string& folder, std::string&) {
    *field = FileName(value, folder);
    return true;
  };
}

SettingSetter PasswordFileSetting(std::string* password) {
  return [password](const std::string& value, const std::string& folder, std::string& problem) {
    const std::string path = FileName(value, folder);
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    const postara::ScopeGuard close_file([file] { close(file); });
    struct stat status = {};
    if (file < 0 || fstat(file, &status) != 0) {
      problem = "cannot read " + path + ": " + strerror(errno);
      return false;
    }
    if (!S_ISREG(status.st_mode)) {
      problem = path + " is not a file";
      return false;
    }
    if ((status.st_mode & 077) != 0) {
      problem = path + " may be read by others than its owner: chmod 600 it";
      return false;
    }
    std::string bytes;
    if (ReadFile(path, bytes) < 0) {
      problem = "cannot read " + path + ": " + strerror(errno);
      return false;
    }
    *password = bytes.substr(0, bytes.find_first_of("\r\n"));
    problem = path + " is empty";
    return !password->empty();
  };
}

SettingSetter AddressesSetting(std::vector<std::pair<std::string, int>>* field) {
  return [field](const std::string& value, const std::string&, std::string& problem) {
    problem = "must be a list of HOST:PORT";
    for (const std::string& item : SplitList(value)) {
      std::pair<std::string, int> address;
      if (!ParseAddress(item, address)) {
        return false;
      }
      field->push_back(address);
    }
    return true;
  };
}

SettingSetter NameSetSetting(std::set<std::string>* field) {
  return [field](const std::string& value, const std::string&, std::string&) {
    const std::vector<std::string> names = SplitList(value);
    *field = std::set<std::string>(names.begin(), names.end());
    return true;
  };
}

SettingSetter NoTlsSetting() {
  return [](const std::string&, const std::string&, std::string& problem) {
    problem =
        "is not supported; run stunnel as a client on this host and set host and port to where it"
        " listens";
    return false;
  };
}

}  // namespace korvmailserver
