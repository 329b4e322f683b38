#include "tools/mdomain/disclaimer_explain.h"

#include <json/reader.h>
#include <json/writer.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>

#include "lib-domain/base/text.h"
#include "platform/include/process.h"
#include "platform/include/scope_guard.h"
#include "tools/mdomain/status.h"

namespace mdomain {
namespace {

// Strings are compared as UTF-8 bytes, as the filter sees them.
constexpr char kProgram[] = R"PERL(
use strict; use JSON::PP;
our (%all_domain_map, %local_domain_map, %gid_username_map);
our ($Sender, $SenderName, $SenderDomain, $Recipient, $RecipientName, $RecipientDomain);
sub bytes_of {
  my ($v) = @_;
  return { map { my $k = $_; utf8::encode($k); ($k => bytes_of($v->{$_})) } keys %$v }
    if ref $v eq 'HASH';
  return [map { bytes_of($_) } @$v] if ref $v eq 'ARRAY';
  return $v if ref $v || !defined $v;
  my $t = "$v"; utf8::encode($t); return $t;
}
sub parts_of {
  my ($a) = @_; $a =~ s/^<|>$//g;
  return $a =~ /^(.*)\@([^@]*)$/s ? ($a, $1, $2) : ($a, $a, '');
}
sub holds {
  my ($test) = @_;
  my $result = eval "no strict 'vars'; ($test) ? 1 : 0";
  die "bad condition: $@" unless defined $result;
  return $result;
}
open(my $file, '<:raw', $ARGV[0]) or die "$ARGV[0]: $!";
my $input = bytes_of(JSON::PP->new->utf8->decode(do { local $/; <$file> }));
my $config = $input->{config};
%all_domain_map = %{ $config->{all_domain_map} };
%local_domain_map = %{ $config->{local_domain_map} };
%gid_username_map = %{ $config->{gid_username_map} };
($Sender, $SenderName, $SenderDomain) = parts_of($input->{from});
($Recipient, $RecipientName, $RecipientDomain) = parts_of($input->{to});
my $local = exists($local_domain_map{lc $RecipientDomain}) ? 1 : 0;
my @answers;
for my $d (@{ $config->{disclaimer_list} }) {
  my $off = $local && $d->{disabled_for_local_recipient};
  push @answers, {
    applies => holds($d->{condition}) && !$off ? JSON::PP::true : JSON::PP::false,
    local_recipient => $off ? JSON::PP::true : JSON::PP::false,
    matched => [map { $_->{index} + 0 } grep { holds($_->{test}) } @{ $d->{match} }],
    excepted => [map { $_->{index} + 0 } grep { holds($_->{test}) } @{ $d->{exceptions} }],
  };
}
print JSON::PP->new->encode(\@answers);
)PERL";

// Writes a file that only its owner can read. The caller removes it.
std::string WriteScratch(const std::string& bytes) {
  std::string path = "/tmp/mdomain-explain.XXXXXX";
  const int fd = mkstemp(path.data());
  FILE* file = fd < 0 ? nullptr : fdopen(fd, "w");
  if (file == nullptr) {
    throw Failure(kFailed, "no scratch file could be made in /tmp");
  }
  const bool written = fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
  if (fclose(file) != 0 || !written) {
    unlink(path.c_str());
    throw Failure(kFailed, path + " could not be written");
  }
  return path;
}

std::string RunPerl(const std::string& input_path) {
  const char* const argv[] = {"perl", "-e", kProgram, input_path.c_str(), nullptr};
  FILE* stream = KLIBCPopenv("/usr/bin/perl", "r", argv);
  if (stream == nullptr) {
    throw Failure(kFailed, "/usr/bin/perl could not be started");
  }
  std::string output;
  char buffer[4096];
  for (size_t n = 0; (n = fread(buffer, 1, sizeof(buffer), stream)) > 0;) {
    output.append(buffer, n);
  }
  if (KLIBCPclose(stream) != 0) {
    throw Failure(kFailed, "perl failed: " + KLIBCPopenErrorText());
  }
  return output;
}

// One object per element of `config["disclaimer_list"]`, in order: "applies", "matched", "excepted"
// and "local_recipient".
Json::Value Evaluate(const Json::Value& config, const std::string& from, const std::string& to) {
  Json::Value input(Json::objectValue);
  input["config"] = config;
  input["from"] = from;
  input["to"] = to;
  const std::string path = WriteScratch(Json::writeString(Json::StreamWriterBuilder(), input));
  const postara::ScopeGuard remove([&] { unlink(path.c_str()); });
  const std::string output = RunPerl(path);
  Json::Value answers;
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  if (!reader->parse(output.data(), output.data() + output.size(), &answers, nullptr) ||
      answers.size() != config["disclaimer_list"].size()) {
    throw Failure(kFailed, "perl gave an answer that could not be read");
  }
  return answers;
}

std::string RuleList(const char* list, const Json::Value& indexes) {
  std::vector<std::string> names;
  for (const Json::Value& index : indexes) {
    names.push_back(std::string(list) + "[" + index.asString() + "]");
  }
  return MDOMAIN::BASE::Join(names, ", ");
}

std::string Reason(const Json::Value& answer) {
  if (answer["local_recipient"].asBool()) {
    return "disabled for local recipients";
  }
  if (!answer["excepted"].empty()) {
    return RuleList("exception_rule_list", answer["excepted"]);
  }
  return answer["matched"].empty() ? "no match rule holds"
                                   : RuleList("match_rule_list", answer["matched"]);
}

Json::Value ExplainRow(const Json::Value& disclaimer) {
  Json::Value row(Json::objectValue);
  row["id"] = disclaimer["id"];
  row["name"] = disclaimer["name"];
  row["applies"] = false;
  row["reason"] = disclaimer["enabled"] == Json::Value(true) ? "invalid, left out" : "disabled";
  row["matched"] = Json::arrayValue;
  row["excepted"] = Json::arrayValue;
  return row;
}

}  // namespace

Json::Value ExplainDisclaimers(const Json::Value& list, const Json::Value& config,
                               const std::string& from, const std::string& to) {
  const Json::Value answers = Evaluate(config, from, to);
  Json::Value rows(Json::arrayValue);
  for (const Json::Value& disclaimer : list) {
    rows.append(ExplainRow(disclaimer));
  }
  for (Json::ArrayIndex i = 0; i < answers.size(); ++i) {
    Json::Value& row = rows[config["disclaimer_list"][i]["place"].asUInt()];
    row["applies"] = answers[i]["applies"];
    row["reason"] = Reason(answers[i]);
    row["matched"] = answers[i]["matched"];
    row["excepted"] = answers[i]["excepted"];
  }
  return rows;
}

}  // namespace mdomain
