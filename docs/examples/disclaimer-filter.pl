# A MIMEDefang filter that appends disclaimers as the generated configuration tells.
#
# The configuration is what `mdomain disclaimer generate` prints; it is read from disclaimers.json beside this
# file, when that has been replaced before the next message. Every condition is a Perl expression over the
# variables of the package Condition. Names are compared as bytes, so everything that is read is
# turned into UTF-8 bytes.

use strict;
use warnings;
use Encode         ();
use File::Basename ();
use JSON::PP       ();

our ($Sender, @Recipients);    # set by MIMEDefang, with "<" and ">"
my @disclaimers;

# What a condition sees of the message and of one recipient. In a block of its own, so that its
# $Sender is not the filter's.
package Condition {
    our ($Sender, $SenderName, $SenderDomain, $Recipient, $RecipientName, $RecipientDomain);
    our (%all_domain_map, %local_domain_map, %gid_username_map);

    sub compile {
        my $code = eval "sub { return ($_[0]) ? 1 : 0 }";
        die "bad condition: $@" if $@;
        return $code;
    }
}

sub bytes_of {
    my ($value) = @_;
    if (ref $value eq 'HASH') {
        my %out;
        for my $key (keys %$value) {
            my $name = $key;
            utf8::encode($name);
            $out{$name} = bytes_of($value->{$key});
        }
        return \%out;
    }
    return [map { bytes_of($_) } @$value] if ref $value eq 'ARRAY';
    return $value if ref $value || !defined $value;
    my $text = "$value";
    utf8::encode($text);
    return $text;
}

# Workers live long, and those of an embedded Perl share what was read before they began: a worker that
# is told to read its filter again would still have the old one.
my $config_path = File::Basename::dirname(__FILE__) . '/disclaimers.json';
my $config_seen = '';

sub load_disclaimers {
    my $seen = join(' ', map { $_ // '' } (stat $config_path)[0, 1, 7, 9]);
    return if $seen eq $config_seen;
    open(my $file, '<:raw', $config_path) or die "$config_path: $!";
    my $json = do { local $/; <$file> };
    close $file;
    my $config = bytes_of(JSON::PP->new->utf8->boolean_values(0, 1)->decode($json));
    %Condition::all_domain_map   = %{ $config->{all_domain_map} };
    %Condition::local_domain_map = %{ $config->{local_domain_map} };
    %Condition::gid_username_map = %{ $config->{gid_username_map} };
    @disclaimers                 = @{ $config->{disclaimer_list} };
    $_->{code} = Condition::compile($_->{condition}) for @disclaimers;
    $config_seen = $seen;
}

# "<a@b>" or "a@b" into the address, what stands before its last "@" and what follows it.
sub parts_of {
    my ($address) = @_;
    $address =~ s/^<|>$//g;
    return $address =~ /^(.*)\@([^@]*)$/s ? ($address, $1, $2) : ($address, $address, '');
}

# Whether disclaimer $disclaimer applies to mail from $sender to $recipient.
sub applies {
    my ($disclaimer, $sender, $recipient) = @_;
    local ($Condition::Sender, $Condition::SenderName, $Condition::SenderDomain) =
      parts_of($sender);
    local ($Condition::Recipient, $Condition::RecipientName, $Condition::RecipientDomain) =
      parts_of($recipient);
    return 0
      if $disclaimer->{disabled_for_local_recipient}
      && exists($Condition::local_domain_map{ lc $Condition::RecipientDomain });
    return $disclaimer->{code}->();
}

# Loads HTML::Parser, without which no text is appended to HTML parts (Debian: libhtml-parser-perl).
detect_and_load_perl_modules();
load_disclaimers();

sub filter_begin { }
sub filter { return action_accept(); }

# The text as bytes of the charset in which the part is written. A part in US-ASCII becomes UTF-8
# when the text needs it; in any other charset, what it does not have becomes "?".
sub bytes_for {
    my ($part, $text) = @_;
    return $text unless $part && $text =~ /[^\x00-\x7f]/;
    my $charset = lc($part->head->mime_attr('content-type.charset') // 'us-ascii');
    if ($charset eq 'us-ascii') {
        $part->head->mime_attr('content-type' => $part->mime_type)
          unless $part->head->get('content-type');
        $part->head->mime_attr('content-type.charset' => 'utf-8');
        $part->head->replace('content-transfer-encoding', 'quoted-printable')
          if $part->head->mime_encoding eq '7bit';
        return $text;
    }
    my $encoding = Encode::find_encoding($charset);
    return $encoding ? $encoding->encode(Encode::decode('UTF-8', $text)) : $text;
}

# A text is appended once, when its disclaimer applies to any of the recipients.
sub filter_end {
    my ($entity) = @_;
    load_disclaimers();
    for my $disclaimer (@disclaimers) {
        next unless grep { applies($disclaimer, $Sender, $_) } @Recipients;
        my ($text, $html) = @$disclaimer{qw(content_txt content_html)};
        append_text_boilerplate($entity, bytes_for(find_part($entity, 'text/plain', 1), $text), 0)
          if length $text;
        append_html_boilerplate($entity, bytes_for(find_part($entity, 'text/html', 1), $html), 0)
          if length $html;
    }
}

# "applies SENDER RECIPIENT" answers with one digit per disclaimer, for trying a configuration out
# with `mimedefang.pl -server`.
sub filter_unknown_cmd {
    my ($command, $sender, $recipient) = @_;
    return ('error:', 'unknown command') unless $command eq 'applies';
    load_disclaimers();
    return ('ok', join('', map { applies($_, $sender, $recipient) } @disclaimers));
}

sub filter_validate { return 0; }

1;
