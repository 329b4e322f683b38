// Platform calls that fail when a test says so. Include it in one source of a test program: the
// functions defined here stand before the platform library's own.
//
// test::FailOn("mailConfSet", "dkim") makes the calls of mailConfSet whose first text holds "dkim"
// fail; without a text every call fails. WhenCalled runs something at each call. ClearFaults ends
// both.
#ifndef TESTS_SUPPORT_PLATFORM_FAULTS_H
#define TESTS_SUPPORT_PLATFORM_FAULTS_H

#include <dlfcn.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <string>
#include <utility>

#include "platform/include/account.h"
#include "platform/include/alias.h"
#include "platform/include/config.h"
#include "platform/include/db_handler.h"
#include "platform/include/domain_setting.h"
#include "platform/include/files.h"
#include "platform/include/key_store.h"
#include "platform/include/mail_conf.h"

namespace test {

inline std::map<std::string, std::string>& Faults() {
  static std::map<std::string, std::string> faults;
  return faults;
}

inline void FailOn(const std::string& function, const std::string& text = "") {
  Faults()[function] = text;
}

inline std::map<std::string, std::function<void()>>& Watchers() {
  static std::map<std::string, std::function<void()>> watchers;
  return watchers;
}

inline void WhenCalled(const std::string& function, std::function<void()> watcher) {
  Watchers()[function] = std::move(watcher);
}

inline void ClearFaults() {
  Faults().clear();
  Watchers().clear();
}

inline bool Fails(const std::string& function, const std::string& text = "") {
  if (const auto watcher = Watchers().find(function); watcher != Watchers().end()) {
    watcher->second();
  }
  const auto fault = Faults().find(function);
  return fault != Faults().end() && text.find(fault->second) != std::string::npos;
}

// The platform's own function of a mangled name.
template <typename Function>
Function Real(const char* symbol) {
  void* const function = dlsym(RTLD_NEXT, symbol);
  if (function == nullptr) {
    std::fprintf(stderr, "the platform has no %s\n", symbol);
    std::abort();
  }
  return reinterpret_cast<Function>(function);
}

}  // namespace test

#define TEST_TEXT_SYMBOL "RKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE"

int mailConfSet(const std::string& key, const std::string& value, bool publish, int flags) {
  using Function = int (*)(const std::string&, const std::string&, bool, int);
  static const auto real = test::Real<Function>("_Z11mailConfSet" TEST_TEXT_SYMBOL "S6_bi");
  return test::Fails("mailConfSet", key) ? -1 : real(key, value, publish, flags);
}

int KLIBCFileTouch(const char* path) {
  static const auto real = test::Real<int (*)(const char*)>("_Z14KLIBCFileTouchPKc");
  errno = EACCES;
  return test::Fails("KLIBCFileTouch", path) ? -1 : real(path);
}

std::vector<std::string> korvmailserver::TouchAll(const std::string& /*folder*/,
                                                  const std::vector<std::string>& names) {
  return names;  // so that KLIBCFileTouch is called for each
}

int KORVFSMkdirP(const char* path, uid_t uid, gid_t gid, mode_t mode) {
  using Function = int (*)(const char*, uid_t, gid_t, mode_t);
  static const auto real = test::Real<Function>("_Z12KORVFSMkdirPPKcjjj");
  errno = EACCES;
  return test::Fails("KORVFSMkdirP", path) ? -1 : real(path, uid, gid, mode);
}

int KORVGroupListMember(const char* name, PKLIBCSzList list) {
  using Function = int (*)(const char*, PKLIBCSzList);
  static const auto real = test::Real<Function>("_Z19KORVGroupListMemberPKcP11KLIBCSzList");
  return test::Fails("KORVGroupListMember", name) ? -1 : real(name, list);
}

int Config::LoadSettings() {
  static const auto real = test::Real<int (*)(Config*)>("_ZN6Config12LoadSettingsEv");
  return test::Fails("Config::LoadSettings") ? -1 : real(this);
}

int Config::SaveSettings() {
  static const auto real = test::Real<int (*)(Config*)>("_ZN6Config12SaveSettingsEv");
  return test::Fails("Config::SaveSettings") ? -1 : real(this);
}

int Alias::load() {
  static const auto real = test::Real<int (*)(Alias*)>("_ZN5Alias4loadEv");
  return test::Fails("Alias::load") ? -1 : real(this);
}

int Alias::delDomainAlias(int domain_id) {
  static const auto real = test::Real<int (*)(Alias*, int)>("_ZN5Alias14delDomainAliasEi");
  return test::Fails("Alias::delDomainAlias") ? -1 : real(this, domain_id);
}

int MultipleDomain::DomainSetting::CreateSettings(int domain_id) {
  using Function = int (*)(MultipleDomain::DomainSetting*, int);
  static const auto real =
      test::Real<Function>("_ZN14MultipleDomain13DomainSetting14CreateSettingsEi");
  return test::Fails("DomainSetting::CreateSettings") ? -1 : real(this, domain_id);
}

int MultipleDomain::DomainSetting::DelSettings(int domain_id) {
  using Function = int (*)(MultipleDomain::DomainSetting*, int);
  static const auto real =
      test::Real<Function>("_ZN14MultipleDomain13DomainSetting11DelSettingsEi");
  return test::Fails("DomainSetting::DelSettings") ? -1 : real(this, domain_id);
}

int KORV::POSTARA_SERVER::KORVMailNodeCluster::setFile(const std::string& key,
                                                       const std::string& path) {
  using Function = int (*)(const std::string&, const std::string&);
  static const auto real = test::Real<Function>(
      "_ZN4KORV14POSTARA_SERVER19KORVMailNodeCluster7setFileE" TEST_TEXT_SYMBOL "S9_");
  return test::Fails("KORVMailNodeCluster::setFile", key) ? -1 : real(key, path);
}

// A batch fails when one of its statements holds the text.
int DBHandler::exeCmds(const SQLCmd& cmds, bool transaction) {
  using Function = int (*)(DBHandler*, const SQLCmd&, bool);
  static const auto real = test::Real<Function>(
      "_ZN9DBHandler7exeCmdsERKSt6vectorINSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEESaIS6_"
      "EEb");
  const bool fails = std::any_of(cmds.begin(), cmds.end(), [](const std::string& cmd) {
    return test::Fails("DBHandler::exeCmds", cmd);
  });
  return fails ? -1 : real(this, cmds, transaction);
}

int DBHandler::exeSteps(const std::vector<SqlStep>& steps) {
  using Function = int (*)(DBHandler*, const std::vector<SqlStep>&);
  static const auto real =
      test::Real<Function>("_ZN9DBHandler8exeStepsERKSt6vectorI7SqlStepSaIS1_EE");
  const bool fails = std::any_of(steps.begin(), steps.end(), [](const SqlStep& step) {
    return test::Fails("DBHandler::exeCmds", step.text);
  });
  return fails ? -1 : real(this, steps);
}

#endif  // TESTS_SUPPORT_PLATFORM_FAULTS_H
