# evaluate_conditions.pl FILE : FILE holds {"maps": {...}, "cases": [{"condition", "sender",
# "recipient"}]}; prints a line per case: 1, 0, or "error TEXT" when the condition is no Perl.
use strict;
use warnings;
use JSON::PP;

sub bytes_of {
    my ($value) = @_;
    return { map { my $k = $_; utf8::encode($k); ($k => bytes_of($value->{$_})) } keys %$value }
      if ref $value eq 'HASH';
    return [map { bytes_of($_) } @$value] if ref $value eq 'ARRAY';
    my $text = "$value";
    utf8::encode($text);
    return $text;
}
open(my $file, '<:raw', $ARGV[0]) or die $!;
my $input = bytes_of(JSON::PP->new->utf8->decode(do { local $/; <$file> }));
our %all_domain_map = %{ $input->{maps}{all_domain_map} };
our %gid_username_map = %{ $input->{maps}{gid_username_map} };
our ($Sender, $SenderName, $SenderDomain, $Recipient, $RecipientName, $RecipientDomain);
for my $case (@{ $input->{cases} }) {
    ($Sender, $Recipient) = ($case->{sender}, $case->{recipient});
    ($SenderName, $SenderDomain) = $Sender =~ /^(.*)\@([^@]*)$/s ? ($1, $2) : ($Sender, '');
    ($RecipientName, $RecipientDomain) =
      $Recipient =~ /^(.*)\@([^@]*)$/s ? ($1, $2) : ($Recipient, '');
    my $result = eval "use strict; use warnings FATAL => 'all'; ($case->{condition}) ? 1 : 0";
    my $error = $@;
    $error =~ s/\n/ /g;
    print defined $result ? "$result\n" : "error $error\n";
}
