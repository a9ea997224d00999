# The gateway called with Perl's XMLRPC::Lite (see ../README.md for the checks
# and the submission every client sends).
use strict;
use warnings;
use utf8;
use FindBin;
use lib $FindBin::Bin;
use XMLRPC::Lite;
use Interop;

binmode STDOUT, ':encoding(UTF-8)';
my ($url, $tag, $mode) = @ARGV;

# Options after the URL go to LWP::UserAgent: keep_alive reuses the connection.
my $client = XMLRPC::Lite->proxy($url, keep_alive => 1);
my $call = sub {
    my ($method, @params) = @_;
    my $som = $client->call($method, @params);
    die 'fault ' . $som->faultstring . "\n" if $som->fault;
    return $som->result;
};
my $typed = sub { my $type = shift; return sub { XMLRPC::Data->type($type => $_[0]) } };

if ($mode eq 'calls') {
    Interop::run_calls($call);
    exit 0;
}
Interop::run_checks($tag,
    call => $call,
    string => $typed->('string'),
    int => $typed->('int'),
    bool => $typed->('boolean'),
    double => $typed->('double'),
    datetime => $typed->('dateTime'),
    base64 => $typed->('base64'),
    multicall => sub {
        my @calls = map { { methodName => $_->[0], params => [@$_[1 .. $#$_]] } } @_;
        my $results = $call->('system.multicall', \@calls);
        return [map { ref $_ eq 'ARRAY' ? $_->[0] : $_ } @$results];
    },
);
