#!/usr/bin/perl
# Measures the local engine from outside, as the client uses it, beside other programs that keep or copy directories.
# engine.pl INSTALLATION DIRECTORY RESULT [ROW...]
#
# Everything happens in a new directory in DIRECTORY, which is to lie on a real disk. The table is printed and
# written to RESULT. Without rows, all of them are measured. From the environment:
#   ORVEL_BENCH_FILES      sizes, from small to large; "20000,100000" when unset. What is measured at one size
#                          only is measured at the last
#   ORVEL_BENCH_ROUNDS     how often what has peers is repeated, in turns; the median counts. 3 when unset
#   ORVEL_BENCH_LARGE_MIB  the size of the one large file; 4096 when unset
#   ORVEL_BENCH_WINDOW     seconds after which an engine is at rest; 30 when unset
#   ORVEL_BENCH_IDLE       seconds of idling; 60 when unset
#   ORVEL_BENCH_DEADLINE   seconds that a single wait may take; 3600 when unset
use strict;
use warnings;
use Cwd qw(abs_path);
use File::Basename qw(dirname);
use File::Find qw(find);
use File::Temp qw(tempdir);
use List::Util qw(max min);
use Time::HiRes qw(time);

require(abs_path(dirname(__FILE__)) . '/engineclient.pm');

my @sizes = split(/,/, $ENV{ORVEL_BENCH_FILES} // '20000,100000');
my $rounds = $ENV{ORVEL_BENCH_ROUNDS} // 3;
my $large = $ENV{ORVEL_BENCH_LARGE_MIB} // 4096;
my $window = $ENV{ORVEL_BENCH_WINDOW} // 30;
my $idle = $ENV{ORVEL_BENCH_IDLE} // 60;

my $file_size = 1024;
my $per_directory = 100;
my $repeats = 5;       # of what takes but a moment
my $most_changes = 1000;
my @known = qw(large first cost memory start change changes save cloud idle rename);
my @peers = qw(unison rclone rsync cp);

my ($installation, $place, $result, @asked) = @ARGV;
die "Usage: engine.pl INSTALLATION DIRECTORY RESULT [ROW...]\n" if !defined $result;
die "ORVEL_BENCH_FILES: numbers from small to large, at least 400\n"
    if !@sizes || grep({ !/^\d+$/ || $_ < 400 } @sizes) || grep({ $sizes[$_] <= $sizes[$_ - 1] } 1 .. $#sizes);
for my $row (@asked) {
    die "No row \"$row\"; there are: @known\n" if !grep { $_ eq $row } @known;
}
my %wanted = map { $_ => 1 } @asked ? @asked : @known;
$_ = abs_path($_) // die "$_: $!\n" for $installation, $place;

local $SIG{$_} = sub { exit(130) } for qw(INT TERM HUP);
my $scratch = tempdir('engine-XXXXXX', DIR => $place, CLEANUP => 0);
my $client; # the engine that runs, and nothing else that has to be ended
my $owner = $$;
END {
    if ($scratch && $owner == $$) {
        my $code = $?;
        undef $client;
        system('rm', '-rf', $scratch);
        $? = $code;
    }
}

# ---- The table

my @rows;

# Verdict: true, false, or undef where nothing is to be told.
sub row {
    my ($work, $goal, $ours, $others, $met) = @_;
    push @rows, [$work, $goal, $ours, $others, defined $met ? $met ? 'met' : '**missed**' : ''];
    print STDERR "  $work: $ours", $others ne '' ? " ($others)" : '', "\n";
    return;
}

sub table {
    return join('', map { '| ' . join(' | ', @$_) . " |\n" }
                    [qw(work goal ours peers verdict)], [('---') x 5], @rows);
}

sub digits { return sprintf('%.3g', $_[0]) + 0 }
sub seconds { return $_[0] < 1 ? digits($_[0] * 1000) . ' ms' : digits($_[0]) . ' s' }
sub mebibytes { return digits($_[0]) . ' MiB' }
sub count { return scalar reverse(join(',', unpack('(A3)*', reverse $_[0]))) }

sub median {
    my @sorted = sort { $a <=> $b } @_;
    return $sorted[$#sorted / 2];
}

# ---- Files

sub shell {
    system(@_) == 0 or die "@_: code $?\n";
    return;
}

# What earlier work has left to be written is no part of what comes now.
sub quiet {
    shell('sync', '-f', $scratch);
    return;
}

sub fresh {
    my ($name) = @_;
    shell('rm', '-rf', "$scratch/$name");
    mkdir("$scratch/$name") or die "$scratch/$name: $!\n";
    return "$scratch/$name";
}

my $pattern = join('', map { chr(32 + ($_ * 7919 + ($_ >> 5)) % 95) } 1 .. $file_size);

# Writes it elsewhere and renames it, so that nobody sees half of it. No two contents are the same.
my $contents = 0;
sub write_file {
    my ($path) = @_;
    open(my $file, '>', "$scratch/unfinished") or die "$scratch/unfinished: $!\n";
    print $file substr(++$contents . " $pattern", 0, $file_size);
    close($file) or die "$scratch/unfinished: $!\n";
    rename("$scratch/unfinished", $path) or die "$path: $!\n";
    return;
}

# Half of the files lie in "first", so that one directory holds that many.
sub directories {
    my ($files) = @_;
    my $directories = int($files / $per_directory);
    return map { sprintf('data/%s/%05d', $_ < int($directories / 2) ? 'first' : 'second', $_) } 0 .. $directories - 1;
}

sub make_files {
    my ($root, $files) = @_;
    mkdir("$root/$_") or die "$root/$_: $!\n" for 'data', 'data/first', 'data/second';
    for my $directory (directories($files)) {
        mkdir("$root/$directory") or die "$directory: $!\n";
        write_file(sprintf('%s/%s/file %02d', $root, $directory, $_)) for 0 .. $per_directory - 1;
    }
    return;
}

# Path within the directory and inode of every file.
sub files_in {
    my ($directory) = @_;
    my %found;
    find({no_chdir => 1, wanted => sub {
        if (/\.cache$/) { $File::Find::prune = 1; return }
        my @status = lstat($_);
        $found{substr($_, length $directory)} = $status[1] if -f _ && $status[7] == $file_size;
    }}, $directory);
    return \%found;
}

sub is_whole {
    my ($path, $size) = @_;
    return (-s $path // -1) == ($size // $file_size);
}

# ---- One file

sub measure_large {
    print STDERR "One file of $large MiB\n";
    my $source = fresh('large') . '/source';
    open(my $random, '<', '/dev/urandom') or die "/dev/urandom: $!\n";
    read($random, my $block, 1 << 20) or die "/dev/urandom: $!\n";
    open(my $file, '>', $source) or die "$source: $!\n";
    for my $number (1 .. $large) {
        substr($block, 0, 16) = sprintf('%16d', $number);
        print $file $block or die "$source: $!\n";
    }
    close($file) or die "$source: $!\n";

    my (@ours, @theirs, @memory);
    for (1 .. $rounds) {
        push @theirs, peer('cp', $source, "$scratch/large/copy");
        unlink("$scratch/large/copy");

        start_empty();
        $client->pause(min(2, $window));
        my $before = $client->peak_memory;
        my ($from, $to) = map { "$_/large" } $client->folder, $client->cloud;
        rename($source, $from) or die "$from: $!\n";
        quiet();
        my $start = time;
        $client->changed($client->folder);
        $client->until_true('the large file in the cloud', sub { is_whole($to, $large << 20) });
        push @ours, time - $start;
        push @memory, $client->peak_memory - $before;
        $client->stop;
        rename($from, $source) or die "$source: $!\n";
    }
    fresh('large');
    my ($ours, $theirs) = (median(@ours), median(@theirs));
    row("one file of $large MiB", '<= 1.2 x cp', seconds($ours), 'cp ' . seconds($theirs), $ours <= 1.2 * $theirs);
    row("one file of $large MiB, growth of peak memory", '<= 16 MiB', mebibytes(max(@memory)), '', max(@memory) <= 16);
    return;
}

# ---- Many files

my (%first, %memory);

sub peer {
    my ($name, $from, $to) = @_;
    my $home = "$scratch/home-$name";
    -d $home or mkdir($home) or die "$home: $!\n";
    my %command = (
        unison => ['unison', '-ui', 'text', '-batch', '-silent', $from, $to],
        rclone => ['rclone', 'bisync', '--resync', '--workdir', "$home/bisync", $from, $to],
        rsync => ['rsync', '-a', "$from/", "$to/"],
        cp => ['cp', '-a', '-T', $from, $to],
    );
    quiet();
    my ($time, $memory) = EngineClient::run_peer($home, @{$command{$name}});
    push @{$memory{$name}}, $memory if $memory > 0;
    return $time;
}

sub start_empty {
    $client = EngineClient->new($installation, fresh('ours'));
    $client->start;
    $client->until_states('logout');
    $client->login;
    $client->until_states('transferring', 'ok');
    return;
}

my $peak = 0; # of all engines at this size
sub stop_engine {
    $peak = max($peak, $client->peak_memory);
    $client->stop;
    return;
}

# From the sign-in until both sides are the same, as the engine says; whether it is true is looked at as well.
sub first_mirror {
    my ($files) = @_;
    $client = EngineClient->new($installation, fresh('ours'));
    shell('cp', '-a', "$scratch/files", $client->folder);
    $client->start;
    $client->until_states('logout');
    quiet();
    my $start = time;
    $client->login;
    $client->until_states('transferring', 'ok');
    my $time = time - $start;
    my $found = keys %{files_in($client->cloud)};
    die "The engine says \"ok\" with $found files of $files in the cloud\n" if $found != $files;
    stop_engine();
    return $time;
}

sub compare_first {
    my ($files) = @_;
    my @programs = ('ours', $wanted{first} ? @peers : $wanted{start} ? 'unison' : ());
    my $count = $wanted{first} || $wanted{cost} ? $rounds : 1;
    my %times;
    for (1 .. $count) {
        for my $name (@programs) {
            if ($name eq 'ours') { push @{$times{ours}}, first_mirror($files); next }
            shell('rm', '-rf', "$scratch/home-$name");
            push @{$times{$name}}, peer($name, "$scratch/files", fresh("copy-$name"));
            shell('rm', '-rf', "$scratch/copy-$name") if $name ne 'unison';
        }
        push @programs, shift @programs; # everybody is first in turn
    }
    $first{$files} = {map { $_ => median(@{$times{$_}}) } keys %times};
    return;
}

sub start_again {
    my ($for) = @_;
    $client->start;
    $client->until_states('transferring', 'ok');
    return time - $client->{started};
}

sub measure_start {
    my ($files) = @_;
    my $bin = "$installation/erlang/erts-9.0/bin/erl.exe";
    my (@ours, @second, @machine);
    for (1 .. $rounds) {
        quiet();
        push @ours, start_again();
        stop_engine();
        push @second, peer('unison', "$scratch/files", "$scratch/copy-unison");
        push @machine, (EngineClient::run_peer($scratch, $bin, '+Bd', '-noshell', '-eval', 'halt().'))[0];
    }
    my ($ours, $second, $machine) = map { median(@$_) } \@ours, \@second, \@machine;
    row('start with nothing changed, ' . count($files) . ' files', "unison's second run and the virtual machine's start",
        seconds($ours), 'unison ' . seconds($second) . ', virtual machine ' . seconds($machine),
        $ours <= $second + $machine);
    my $loading = $ours - $machine;
    row('loading the tree: less than the start without the virtual machine', '<= 1 s', '< ' . seconds($loading), '',
        $loading <= 1 ? 1 : undef); # a longer one says nothing of the loading
    return;
}

sub several {
    my (@times) = @_;
    return seconds(median(@times)) . ', slowest ' . seconds(max(@times));
}

sub measure_change {
    my ($files) = @_;
    my ($folder, $cloud) = ($client->folder, $client->cloud);
    my @directories = directories($files);
    my @times;
    for my $number (1 .. $repeats) {
        my $directory = $directories[$#directories * $number / $repeats];
        write_file("$folder/$directory/change $number");
        my $start = time;
        $client->changed("$folder/$directory");
        $client->until_true('the new file in the cloud', sub { is_whole("$cloud/$directory/change $number") });
        push @times, time - $start;
        $client->pause(0.5 + rand(2));
    }
    row('one change in the folder at ' . count($files) . ' files, until in the cloud', '<= 0.2 s', several(@times), '',
        median(@times) <= 0.2);
    return;
}

sub measure_cloud {
    my ($files) = @_;
    my ($folder, $cloud) = ($client->folder, $client->cloud);
    my @directories = directories($files);
    my @times;
    for my $number (1 .. $repeats) {
        my $directory = $directories[$#directories * $number / $repeats];
        my $start = time;
        write_file("$cloud/$directory/news $number");
        $client->until_true('the new file in the folder', sub { is_whole("$folder/$directory/news $number") });
        push @times, time - $start;
        $client->changed("$folder/$directory"); # as the client does
        $client->pause(0.5 + rand(2));
    }
    row('one change in the cloud at ' . count($files) . ' files, until in the folder', '<= 1.5 s', several(@times), '',
        median(@times) <= 1.5);
    return;
}

sub measure_changes {
    my ($files) = @_;
    my ($folder, $cloud) = ($client->folder, $client->cloud);
    my @directories = directories($files);
    splice(@directories, $most_changes) if @directories > $most_changes;
    write_file("$folder/$_/one of many") for @directories;
    my @left = @directories;
    my $start = time;
    $client->changed(map { "$folder/$_" } @directories);
    $client->until_true('all changes in the cloud', sub {
        shift @left while @left && is_whole("$cloud/$left[0]/one of many");
        return !@left;
    });
    my $time = time - $start;
    row(count(scalar @directories) . ' changes in as many directories at ' . count($files) . ' files', '<= 2 s',
        seconds($time), '', $time <= 2);
    return;
}

sub measure_save {
    my ($files) = @_;
    my ($folder, $cloud) = ($client->folder, $client->cloud);
    my ($directory) = directories($files);
    $client->pause($window);
    my $before = $client->written;
    $client->pause($window);
    my $idling = $client->written - $before;
    $before = $client->written;
    my $end = time + $window;
    write_file("$folder/$directory/to be saved");
    $client->changed("$folder/$directory");
    $client->until_true('the new file in the cloud', sub { is_whole("$cloud/$directory/to be saved") });
    $client->pause(max(0, $end - time));
    my $written = max(0, $client->written - $before - $idling) / 1024;
    row("written within $window s after one change, at " . count($files) . ' files', '<= 64 KiB',
        digits($written) . ' KiB', '', $written <= 64);
    return;
}

sub measure_idle {
    my ($files) = @_;
    $client->pause($window);
    my $before = $client->processor_time;
    $client->pause($idle);
    my $used = ($client->processor_time - $before) * 60 / $idle;
    row('processor time in a minute idle at ' . count($files) . ' files', '<= 0.2 s', seconds($used), '', $used <= 0.2);
    return;
}

# One way and back the other, so that each side leads once.
sub measure_rename {
    my ($files) = @_;
    my %side = (folder => $client->folder, cloud => $client->cloud);
    for my $way (['folder', 'cloud', 'first', 'renamed'], ['cloud', 'folder', 'renamed', 'first']) {
        my ($here, $there, $from, $to) = @$way;
        $client->pause($window);
        my ($old, $new) = map { "$side{$there}/data/$_" } $from, $to;
        my $before = files_in($old);
        my $start = time;
        rename("$side{$here}/data/$from", "$side{$here}/data/$to") or die "$side{$here}/data/$from: $!\n";
        $client->changed("$side{$here}/data") if $here eq 'folder';
        # Many files are counted once it seems to be over.
        my ($last) = sort { $b cmp $a } keys %$before;
        my $after = {};
        my $time;
        $client->until_true("the directory renamed in the $there", sub {
            return if -e $old || !is_whole("$new$last");
            $time = time - $start;
            $after = files_in($new);
            return keys %$after == keys %$before;
        });
        my $copied = grep { ($after->{$_} // 0) != $before->{$_} } keys %$before;
        $client->changed("$side{$there}/data") if $there eq 'folder';
        row('a directory of ' . count(scalar keys %$before) . " files renamed in the $here", '<= 2 s, nothing copied',
            seconds($time) . ', ' . count($copied) . ' copied', '', $time <= 2 && $copied == 0);
    }
    return;
}

# ---- All of it

sub measure_all {
    measure_large() if $wanted{large};

    my @at_last = (start => \&measure_start, change => \&measure_change, changes => \&measure_changes,
                   save => \&measure_save, cloud => \&measure_cloud, idle => \&measure_idle, rename => \&measure_rename);
    my $at_last = grep { $wanted{$_} } qw(start change changes save cloud idle rename);
    for my $files (@sizes) {
        my $is_last = $files == $sizes[-1];
        next if !$wanted{first} && !$wanted{cost} && !$wanted{memory} && !($is_last && $at_last);
        print STDERR count($files), " files\n";
        $peak = 0;
        %memory = ();
        make_files(fresh('files'), $files);
        $files = directories($files) * $per_directory;
        compare_first($files);
        my $times = $first{$files};
        if ($wanted{first}) {
            row('first mirror of ' . count($files) . ' files', '<= unison', seconds($times->{ours}),
                join(', ', map { "$_ " . seconds($times->{$_}) } @peers), $times->{ours} <= $times->{unison});
        }
        if ($is_last && $at_last) {
            measure_start($files) if $wanted{start};
            start_again();
            for my $i (1 .. $#at_last / 2) {
                $at_last[2 * $i + 1]->($files) if $wanted{$at_last[2 * $i]};
            }
            stop_engine();
        }
        if ($wanted{memory}) {
            my $goal = 60 + $files / 1024;
            row('peak memory, ' . count($files) . ' files', '<= ' . mebibytes($goal), mebibytes($peak),
                join(', ', map { "$_ " . mebibytes(max(@{$memory{$_}})) } grep { $memory{$_} } qw(unison rclone)),
                $peak <= $goal);
        }
    }
    for my $i ($wanted{cost} ? 1 .. $#sizes : ()) {
        my ($small, $big) = @sizes[$i - 1, $i];
        my $goal = $big >= 1000000 ? 1.3 : 1.2;
        my %growth = map { $_ => $first{$big}{$_} / $big / ($first{$small}{$_} / $small) } keys %{$first{$big}};
        row('cost of a file at ' . count($big) . ' against ' . count($small), "<= $goal", digits($growth{ours}),
            join(', ', map { "$_ " . digits($growth{$_}) } grep { $growth{$_} } @peers), $growth{ours} <= $goal);
    }
    return;
}

# What was measured until something failed is not lost.
my $failure = eval { measure_all(); 1 } ? '' : $@;
my $missed = grep { $_->[4] =~ /missed/ } @rows;
my $text = table() . "\n" . @rows . " rows, $missed missed\n";
print $text;
open(my $file, '>', $result) or die "$result: $!\n";
print $file $text;
close($file) or die "$result: $!\n";
die $failure if $failure ne '';
