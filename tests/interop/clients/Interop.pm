# The checks every Perl client runs (see ../README.md); each client program
# supplies how its library calls a method and writes the typed values.
package Interop;

use strict;
use warnings;
use utf8;
use Time::HiRes qw(time sleep);

our $CALLS = 200;

sub name_for { return "$_[0] <b>&amp;</b> \"q\" 'a' café 日本" }

sub report {
    my ($check, $fn) = @_;
    my $problem = eval { $fn->() };
    if ($@) {
        (my $e = "$@") =~ s/\s+/ /g;
        print "RESULT $check fail $e\n";
    } elsif (defined $problem) {
        # A check the library cannot express comes back as "n/a <why>".
        print $problem =~ /^n\/a / ? "RESULT $check $problem\n" : "RESULT $check fail $problem\n";
    } else {
        print "RESULT $check pass\n";
    }
}

# A readable form of a value, for messages and comparisons.
sub show {
    my ($v) = @_;
    return 'undef' unless defined $v;
    return '[' . join(', ', map { show($_) } @$v) . ']' if ref $v eq 'ARRAY';
    return '{' . join(', ', map { "$_: " . show($v->{$_}) } sort keys %$v) . '}' if ref $v eq 'HASH';
    return "\"$v\"";
}

sub expect {
    my ($what, $got, $want) = @_;
    return show($got) eq show($want) ? undef : "$what: got " . show($got) . ", expected " . show($want);
}

sub ok {
    my ($reply) = @_;
    die 'unexpected reply ' . show($reply) . "\n" if ref $reply ne 'HASH' || exists $reply->{error};
    return $reply;
}

# %h: call => sub (method, params...), string/int/bool/double/datetime/base64
# => sub (perl value) giving the library's typed value, multicall => sub
# (list of [method, params...]) giving the results (or "n/a <why>").
sub run_checks {
    my ($tag, %h) = @_;
    my $call = $h{call};
    my $name = name_for($tag);
    $| = 1;
    report('list-methods', sub {
        my $methods = $call->('system.listMethods');
        my %have = map { $_ => 1 } @$methods;
        for my $m (qw(getVersion submitSubmission system.multicall)) {
            return "$m missing" unless $have{$m};
        }
        return expect('number of methods', scalar @$methods, 44);
    });
    report('method-help', sub {
        my $text = $call->('system.methodHelp', $h{string}->('jobPause'));
        return index($text, "'proxy.node.job.pause'") >= 0 ? undef : "unexpected help $text";
    });
    report('get-version', sub { expect('version', ok($call->('getVersion'))->{version}, '7.0.0.0') });
    report('submit', sub {
        my $s = $h{string};
        my $submission = {
            name => $s->($name),
            priority => $h{int}->(7),
            sources => [{ type => $s->('file-source'), files => [$s->('/media/in/a.mov')] }],
            tasks => [{ type => $s->('transfer'), destination => $s->('/media/out') }],
            ints => [map { $h{int}->($_) } 0, -1, 2147483647, -2147483648],
            yes => $h{bool}->(1),
            no => $h{bool}->(0),
            ratio => $h{double}->(2.5),
            small => $h{double}->(-0.125),
            when => $h{datetime}->('20240102T03:04:05'),
            blob => $h{base64}->("\x00\x01\xfe\xffbinary"),
            nested => { level => $h{int}->(1), inner => { level => $h{int}->(2),
                        items => [$h{int}->(1), $s->('two'), [$h{double}->(3.5), { four => $h{bool}->(0) }]] } },
            'empty-string' => $s->(''),
            'empty-array' => [],
            'empty-struct' => {},
            'empty-blob' => $h{base64}->(''),
        };
        my $reply = ok($call->('submitSubmission', { submission => $submission }));
        return 'job-ids ' . show($reply->{'job-ids'}) unless @{ $reply->{'job-ids'} } == 1;
        my $wf = ok($call->('statusWorkflows2', { 'workflow-ids' => [$s->($reply->{'workflow-id'})] }));
        return expect('workflow name', $wf->{workflows}[0]{name}, $name);
    });
    report('empties', sub {
        my $s = $h{string};
        my $src = ok($call->('sourceCreateFileList', { name => $s->(''), files => [$s->('a'), $s->(''), $s->('b')] }))->{source};
        my $problem = expect('source', [$src->{name}, $src->{files}], ['', ['a', '', 'b']]);
        return $problem if $problem;
        my $task = ok($call->('taskCreateExecute', { command => $s->('/bin/true'), arguments => [] }))->{task};
        return expect('task', [$task->{command}, $task->{arguments}], ['/bin/true', []]);
    });
    report('multicall', sub {
        my $s = $h{string};
        my $results = $h{multicall}->(['getVersion', {}], ['jobPause', { 'job-id' => $s->('no-such-job') }],
                                      ['sourceCreateFileList', { files => [$s->('x')] }]);
        return $results unless ref $results;
        return scalar(@$results) . ' results for 3 calls: ' . show($results) unless @$results == 3;
        return 'first result ' . show($results->[0]) unless ($results->[0]{version} // '') eq '7.0.0.0';
        return 'second result ' . show($results->[1]) unless exists $results->[1]{error};
        return expect('third result files', $results->[2]{source}{files}, ['x']);
    });
    report('job-life', sub {
        my $s = $h{string};
        my $jobs = sub {
            my $tasks = ok($call->('statusTasks2', { 'workflow-ids' => [$s->($_[0])] }))->{tasks};
            return { map { $_->{'job-id'} => $_ } @$tasks };
        };
        my $wait = sub {
            my ($wf, $job, $state) = @_;
            my $deadline = time + 60;
            my $got = '';
            while (time < $deadline) {
                $got = $jobs->($wf)->{$job}{state};
                return undef if $got eq $state;
                sleep 0.1;
            }
            return "job $job never reached $state (last $got)";
        };
        my $source = ok($call->('sourceCreateFileList', { files => [$s->('/media/in/a.mov')] }))->{source};
        my $task = ok($call->('taskCreateTransfer', { destination => $s->('/media/out') }))->{task};
        my $built = ok($call->('submitBuildSubmission', { name => $s->("$tag life"), sources => [$source],
                                                          tasks => [$task, $task] }));
        my $wf = $built->{'workflow-id'};
        my ($first, $second) = @{ $built->{'job-ids'} };
        my $problem = expect('paused', ok($call->('jobPause', { 'job-id' => $s->($second) }))->{state}, 'paused')
            // $wait->($wf, $first, 'finished')
            // expect('still paused', $jobs->($wf)->{$second}{state}, 'paused');
        return $problem if $problem;
        return 'resumed job still paused'
            if ok($call->('jobResume', { 'job-id' => $s->($second) }))->{state} eq 'paused';
        ok($call->('jobCancel', { 'job-id' => $s->($second) }));
        return $wait->($wf, $second, 'cancelled');
    });
}

# 200 getVersion calls through $call (one client object); prints the time.
sub run_calls {
    my ($call) = @_;
    my $start = time;
    ok($call->('getVersion')) for 1 .. $CALLS;
    printf "TIME %.3f\n", (time - $start) * 1000.0 / $CALLS;
}

1;
