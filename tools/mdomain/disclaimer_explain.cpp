#include "tools/mdomain/disclaimer_explain.h"

#include <json/reader.h>
#include <json/writer.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>
#include <utility>

#include "lib-domain/insight/disclaimer_rows.h"
#include "platform/include/process.h"
#include "tools/mdomain/status.h"
#include "tools/mdomain/text.h"

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
alarm($ARGV[1] + 1); # without a handler, which would wait for the end of a match
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

// A file without a name, which is gone with the last process that has it open.
class Scratch {
 public:
  explicit Scratch(const std::string& bytes) : fd_(memfd_create("mdomain-explain", 0)) {
    for (size_t done = 0; fd_ >= 0 && done < bytes.size();) {
      const ssize_t count = write(fd_, bytes.data() + done, bytes.size() - done);
      if (count < 0 && errno != EINTR) {
        close(std::exchange(fd_, -1));
      }
      done += count < 0 ? 0 : static_cast<size_t>(count);
    }
    if (fd_ < 0) {
      throw Failure(kFailed, std::string("no memory for the question to perl: ") + strerror(errno));
    }
  }
  ~Scratch() { close(fd_); }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;
  std::string Path() const { return "/proc/self/fd/" + std::to_string(fd_); }

 private:
  int fd_;
};

// Perl ends with this process, however that ends: setpriv asks the kernel for it. Should this
// process be gone already by then, the alarm ends Perl.
std::string RunPerl(const std::string& input_path, int seconds) {
  const std::string limit = std::to_string(seconds);
  const char* const argv[] = {"setpriv", "--pdeathsig",      "KILL",        "/usr/bin/perl", "-e",
                              kProgram,  input_path.c_str(), limit.c_str(), nullptr};
  const int before = KLIBCPopenSetDeadline(seconds);
  FILE* stream = KLIBCPopenv("/usr/bin/setpriv", "r", argv);
  KLIBCPopenSetDeadline(before);
  if (stream == nullptr) {
    throw Failure(kFailed,
                  std::string("/usr/bin/setpriv could not be started: ") + strerror(errno));
  }
  std::string output;
  char buffer[4096];
  for (size_t n = 0; (n = fread(buffer, 1, sizeof(buffer), stream)) > 0;) {
    output.append(buffer, n);
  }
  const int status = KLIBCPclose(stream);
  if (status == 128 + SIGKILL || status == 128 + SIGALRM) {
    throw Failure(kFailed, "perl did not answer within " + Counted(seconds, "second") +
                               " (--timeout gives it more)");
  }
  if (status != 0) {
    throw Failure(kFailed, "perl failed: " + KLIBCPopenErrorText());
  }
  return output;
}

// One object per element of `config["disclaimer_list"]`, in order: "applies", "matched", "excepted"
// and "local_recipient".
Json::Value Evaluate(const Json::Value& config, const Question& question) {
  Json::Value input(Json::objectValue);
  input["config"] = config;
  input["from"] = question.from;
  input["to"] = question.to;
  const Scratch scratch(Json::writeString(Json::StreamWriterBuilder(), input));
  const std::string output = RunPerl(scratch.Path(), question.seconds);
  Json::Value answers;
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  if (!reader->parse(output.data(), output.data() + output.size(), &answers, nullptr) ||
      answers.size() != config["disclaimer_list"].size()) {
    throw Failure(kFailed, "perl gave an answer that could not be read");
  }
  return answers;
}

}  // namespace

Json::Value ExplainDisclaimers(const Json::Value& list, const Json::Value& config,
                               const Question& question) {
  return MDOMAIN::INSIGHT::DisclaimerRows(list, config, Evaluate(config, question));
}

}  // namespace mdomain
