# The gateway called with Perl's Frontier::Client (see ../README.md for the
# checks and the submission every client sends).
use strict;
use warnings;
use utf8;
use Encode qw(encode_utf8);
use FindBin;
use lib $FindBin::Bin;
use Frontier::Client;
use LWP::ConnCache;
use MIME::Base64 ();
use Interop;

binmode STDOUT, ':encoding(UTF-8)';
my ($url, $tag, $mode) = @ARGV;

my $client = Frontier::Client->new(url => $url);
# Frontier::Client builds its LWP::UserAgent without a connection cache;
# giving it one makes the calls share a kept-alive connection.
$client->{ua}->conn_cache(LWP::ConnCache->new);
my $call = sub { return $client->call(@_) };

if ($mode eq 'calls') {
    Interop::run_calls($call);
    exit 0;
}
Interop::run_checks($tag,
    call => $call,
    # A plain Perl string goes out with every character beyond ASCII as a
    # numeric character reference; a string object of UTF-8 bytes goes as it is.
    string => sub { $client->string(encode_utf8($_[0])) },
    int => sub { $client->int($_[0]) },
    bool => sub { $client->boolean($_[0]) },
    double => sub { $client->double($_[0]) },
    datetime => sub { $client->date_time($_[0]) },
    base64 => sub { $client->base64(MIME::Base64::encode_base64($_[0], '')) },
    multicall => sub {
        my @calls = map { { methodName => $_->[0], params => [@$_[1 .. $#$_]] } } @_;
        my $results = $call->('system.multicall', \@calls);
        return [map { ref $_ eq 'ARRAY' ? $_->[0] : $_ } @$results];
    },
);
