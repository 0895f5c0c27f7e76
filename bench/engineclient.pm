# Plays the client for a sync engine: starts it, talks to it over its streams, and tells what it costs.
package EngineClient;
use strict;
use warnings;
use Errno qw(EAGAIN EINTR);
use Fcntl qw(F_GETFL F_SETFL O_NONBLOCK);
use JSON::PP;
use List::Util qw(sum0);
use POSIX qw(WNOHANG _exit sysconf _SC_CLK_TCK);
use Time::HiRes qw(time);

our $patience = $ENV{ORVEL_BENCH_DEADLINE} // 3600; # seconds that a single wait may take
my $look = 0.002; # seconds between two looks at what is waited for
my $kept = 5;     # messages that a failure tells
my $account = 1001;
my $json = JSON::PP->new->canonical; # takes and gives bytes: what is UTF-8 stays UTF-8

# The installation directory, and the one that holds everything of this engine: home, state, cloud and folder.
sub new {
    my ($class, $installation, $lab) = @_;
    return bless {installation => $installation, lab => $lab, last => []}, $class;
}

sub folder { return "$_[0]{lab}/Orvel" }
sub cloud { return "$_[0]{lab}/cloud/$account" }

# As the client starts it, with the roots file of an account that has a folder already.
sub start {
    my ($self) = @_;
    my $lab = $self->{lab};
    for my $directory (map { "$lab/$_" } qw(home state cloud Orvel)) {
        -d $directory or mkdir $directory or die "$directory: $!\n";
    }
    open(my $roots, '>', "$lab/state/$account.json") or die "roots file: $!\n";
    print $roots $json->encode([{path => $lab, name => 'Orvel'}]);
    close($roots) or die "roots file: $!\n";

    my $erlang = "$self->{installation}/erlang";
    my $bin = "$erlang/erts-9.0/bin";
    pipe(my $input, my $to) or die "pipe: $!\n";
    pipe(my $from, my $errors) or die "pipe: $!\n";
    $self->{started} = time;
    my $pid = fork() // die "fork: $!\n";
    if ($pid == 0) {
        chdir($bin) or _exit(126);
        delete @ENV{qw(ORVEL_LOCAL_RATE ORVEL_LOCAL_POLL_MS)};
        @ENV{qw(HOME ROOTDIR BINDIR ORVEL_LOCAL_CLOUD)} = ("$lab/home", $erlang, $bin, "$lab/cloud");
        open(STDIN, '<&', $input);
        open(STDOUT, '>', '/dev/null');
        open(STDERR, '>&', $errors);
        { exec("$bin/erl.exe", '+Bd', '-noshell', '-eval',
               'begin file:set_cwd("../../srv/ebin"),rtsp:startplain(false) end') }
        _exit(127);
    }
    @$self{qw(pid to from rest events)} = ($pid, $to, $from, '', []);
    fcntl($from, F_SETFL, fcntl($from, F_GETFL, 0) | O_NONBLOCK);
    $self->say({statedir => "$lab/state", homepath => $lab, homefolder => 'Orvel', syncfolders => ['Orvel'],
                tmpdir => "$lab/home", port => 1554, version => 12});
    return;
}

sub say {
    my ($self, $message) = @_;
    local $SIG{PIPE} = 'IGNORE';
    my $text = "\njson" . $json->encode($message) . "\n";
    while (length $text) {
        my $written = syswrite($self->{to}, $text) // die "The engine does not listen: $!\n" . $self->last_words;
        substr($text, 0, $written, '');
    }
    return;
}

sub login {
    my ($self) = @_;
    return $self->say({cmd => 'login', username => 'trial@orvel.example', password => 'trial', cid => ''});
}

sub changed {
    my ($self, @directories) = @_;
    return $self->say({cmd => 'pathschaned', paths => \@directories});
}

sub last_words {
    my ($self) = @_;
    return join('', 'Its last messages:', map({ "\n  $_" } @{$self->{last}}), "\n");
}

# Takes what the engine says within so many seconds, as soon as it says something.
sub listen {
    my ($self, $seconds) = @_;
    my $ready = '';
    vec($ready, fileno($self->{from}), 1) = 1;
    return if select($ready, undef, undef, $seconds) <= 0;
    my $size = sysread($self->{from}, $self->{rest}, 65536, length $self->{rest});
    return if !defined $size && ($! == EAGAIN || $! == EINTR);
    die "The engine has ended by itself. " . $self->last_words if !$size;
    while ($self->{rest} =~ s/^([^\n]*)\n//) {
        my $line = $1;
        push @{$self->{events}}, eval { $json->decode($line) } // die "Not a message: $line\n";
        push @{$self->{last}}, $line;
        shift @{$self->{last}} if @{$self->{last}} > $kept;
    }
    return;
}

# Until the link has had these states, one after the other.
sub until_states {
    my ($self, @states) = @_;
    my $deadline = time + $patience;
    while (1) {
        while (my $event = shift @{$self->{events}}) {
            shift @states if $event->{what} eq 'networkstate' && $event->{state} eq $states[0];
            return if !@states;
        }
        my $left = $deadline - time;
        die "No \"$states[0]\" within $patience s. " . $self->last_words if $left <= 0;
        $self->listen($left);
    }
}

# Until the condition holds, listening meanwhile. The messages are not kept.
sub until_true {
    my ($self, $what, $condition) = @_;
    my $deadline = time + $patience;
    until ($condition->()) {
        die "Not within $patience s: $what. " . $self->last_words if time > $deadline;
        $self->listen($look);
    }
    $self->{events} = [];
    return;
}

# Listens for so long, for what the engine does by itself.
sub pause {
    my ($self, $seconds) = @_;
    my $end = time + $seconds;
    while ((my $left = $end - time) > 0) { $self->listen($left) }
    $self->{events} = [];
    return;
}

# Closes its standard input and waits for the end.
sub stop {
    my ($self) = @_;
    close(delete $self->{to});
    my $deadline = time + $patience;
    while (waitpid($self->{pid}, WNOHANG) == 0) {
        die "The engine outlives its standard input by $patience s\n" if time > $deadline;
        select(undef, undef, undef, $look);
    }
    delete $self->{pid};
    return;
}

sub DESTROY {
    my ($self) = @_;
    local ($?, $!, $@);
    return if !$self->{pid};
    kill('KILL', $self->{pid});
    waitpid($self->{pid}, 0);
    return;
}

# ---- What it costs, with all the processes that it has started

sub content {
    my ($path) = @_;
    open(my $file, '<', $path) or return '';
    local $/;
    return <$file> // ''; # one that has just ended has none
}

# After the name, which may hold anything: state, parent and so on.
sub status_of {
    my ($pid) = @_;
    return content("/proc/$pid/stat") =~ /.*\) (.*)/s ? split(' ', $1) : ();
}

sub tree {
    my ($self) = @_;
    my %children;
    for my $pid (map { m{(\d+)$} } glob('/proc/[0-9]*')) {
        my $parent = (status_of($pid))[1];
        push @{$children{$parent}}, $pid if defined $parent;
    }
    my @tree = ($self->{pid});
    for (my $i = 0; $i < @tree; ++$i) { push @tree, @{$children{$tree[$i]} // []} }
    return @tree;
}

# MiB, the most that each has ever had.
sub peak_memory {
    my ($self) = @_;
    return sum0(map { peak_of($_) } $self->tree);
}

sub peak_of {
    my ($pid) = @_;
    return content("/proc/$pid/status") =~ /^VmHWM:\s*(\d+) kB/m ? $1 / 1024 : 0;
}

# Seconds, also of those that have ended.
sub processor_time {
    my ($self) = @_;
    return sum0(map { sum0((status_of($_))[11 .. 14]) } $self->tree) / sysconf(_SC_CLK_TCK);
}

# Bytes that were handed to the system, wherever they went.
sub written {
    my ($self) = @_;
    return sum0(map { content("/proc/$_/io") =~ /^wchar: (\d+)/m ? $1 : 0 } $self->tree);
}

# ---- What it is compared with

# Runs a command and returns its seconds and the MiB that it was last seen to have had.
sub run_peer {
    my ($home, @command) = @_;
    my $log = "$home/output";
    my $start = time;
    my $pid = fork() // die "fork: $!\n";
    if ($pid == 0) {
        @ENV{qw(HOME XDG_CONFIG_HOME XDG_CACHE_HOME UNISON)} = ($home, $home, $home, "$home/unison");
        open(STDIN, '<', '/dev/null');
        open(STDOUT, '>', $log);
        open(STDERR, '>&', \*STDOUT);
        { exec(@command) }
        _exit(127);
    }
    my ($memory, $looks) = (0, 0);
    while (waitpid($pid, WNOHANG) == 0) {
        if (time - $start > $patience) {
            kill('KILL', $pid);
            waitpid($pid, 0);
            die "Not within $patience s: @command\n";
        }
        $memory = peak_of($pid) || $memory if ++$looks % 25 == 0;
        select(undef, undef, undef, $look);
    }
    die "@command: code $?\n", substr(content($log), -2000) if $? != 0;
    return (time - $start, $memory);
}

1;
