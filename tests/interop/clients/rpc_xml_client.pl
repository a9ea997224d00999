# The gateway called with Perl's RPC::XML (see ../README.md for the checks and
# the submission every client sends).
use strict;
use warnings;
use utf8;
use FindBin;
use lib $FindBin::Bin;
use RPC::XML;
use RPC::XML::Client;
use Interop;

binmode STDOUT, ':encoding(UTF-8)';
my ($url, $tag, $mode) = @ARGV;

# keep_alive makes LWP reuse the connection between calls.
my $client = RPC::XML::Client->new($url, useragent => [keep_alive => 1]);
my $call = sub {
    my $reply = $client->simple_request(@_);
    die(($RPC::XML::ERROR || 'no reply') . "\n") unless defined $reply;
    die 'fault ' . Interop::show($reply) . "\n" if ref $reply eq 'HASH' && exists $reply->{faultString};
    return $reply;
};

if ($mode eq 'calls') {
    Interop::run_calls($call);
    exit 0;
}
Interop::run_checks($tag,
    call => $call,
    string => sub { RPC::XML::string->new($_[0]) },
    int => sub { RPC::XML::int->new($_[0]) },
    bool => sub { RPC::XML::boolean->new($_[0]) },
    double => sub { RPC::XML::double->new($_[0]) },
    datetime => sub { RPC::XML::datetime_iso8601->new($_[0]) },
    base64 => sub { RPC::XML::base64->new($_[0]) },
    multicall => sub {
        my @calls = map { { methodName => $_->[0], params => [@$_[1 .. $#$_]] } } @_;
        my $results = $call->('system.multicall', \@calls);
        return [map { ref $_ eq 'ARRAY' ? $_->[0] : $_ } @$results];
    },
);
