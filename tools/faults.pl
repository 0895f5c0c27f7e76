#!/usr/bin/env perl
# Asks how well the tests bite: plants one fault at a time in the client's own code, builds, runs the tests of the
# folder, and lists the faults that nobody noticed.
# faults.pl COUNT SEED [FOLDER...]
#
# The same count and seed give the same faults while the code is the same, whichever folders are asked for. Nothing
# is changed in the working tree: the faults are planted in a copy below build/faults. Only what this computer
# compiles is tried. Faults that cannot be observed, each with its reason, stand in tests/unobservable.txt.
#
# faults.pl --until-failure PROGRAM ARGUMENT...
# Runs a test program up to the first of its tests that fails: one is enough to notice a fault.
use strict;
use warnings;
use Cwd qw(getcwd);
use Digest::SHA qw(sha256);
use File::Basename qw(dirname);
use File::Compare qw(compare);
use File::Copy qw(copy);
use File::Path qw(make_path);
use List::Util qw(sum max);

if (($ARGV[0] // '') eq '--until-failure') {
    my $process = open(my $output, '-|') // die "fork: $!\n";
    if ($process == 0) {
        setpgrp();
        exec(@ARGV[1 .. $#ARGV]) or die "$ARGV[1]: $!\n";
    }
    while (my $line = <$output>) {
        print $line;
        next if $line !~ /^FAIL!/;
        kill('KILL', -$process); # with all that it has started
        exit(1);
    }
    close($output);
    exit($? == 0 ? 0 : 1);
}

my ($count, $seed, @asked) = @ARGV;
my $root = getcwd();
my $copy = "$root/build/faults/source";
my $build = "$root/build/faults/build";
my $slow = 5;      # seconds; programs that take longer run last
my $patience = 4; # times what a program takes without a fault, until it counts as hanging

# Whose tests a folder's faults are shown to.
my %tests_of = (
    app => '^app\.(client|userlock_linux|translation)$',
    base => '^(engine|json)\.',
    engine => '^engine\.',
    json => '^json\.',
    shell => '^shell\.',
    syncfolder => '^syncfolder\.',
    ui => '^ui\.(?!layout\.scale|screenshots)',
    update => '^update\.',
    watch => '^watch\.',
);

# ---- Random numbers that are the same with every Perl

my $state;

sub begin_random {
    my ($text) = @_;
    ($state) = unpack('Q>', sha256($text));
}

sub random {
    my ($below) = @_;
    ($state) = unpack('Q>', sha256(pack('Q>', $state)));
    return $state % $below;
}

# ---- The faults that a file can have

sub contents {
    my ($file) = @_;
    open(my $in, '<:raw', $file) or die "$file: $!\n";
    local $/ = undef;
    return scalar <$in>;
}

sub write_contents {
    my ($file, $text) = @_;
    open(my $out, '>:raw', $file) or die "$file: $!\n";
    print {$out} $text;
    close($out) or die "$file: $!\n";
}

# The text with comments, preprocessor lines and the contents of literals blanked out, place by place.
sub code_of {
    my ($text) = @_;
    my $blank = sub { my ($t) = @_; $t =~ s/[^\n]/ /g; return $t };
    $text =~ s{(//[^\n]*|/\*.*?\*/|^\#[^\n]*(?:\\\n[^\n]*)*)|(R"\((?:.*?)\)")|"((?:[^"\\\n]|\\.)*)"|'((?:[^'\\\n]|\\.)+)'}
              {defined $1 ? $blank->($1) : defined $2 ? $blank->($2) : defined $3 ? '"' . 's' x length($3) . '"'
                   : "'" . 'c' x length($4) . "'"}gemsx;
    return $text;
}

# The end of what begins with the bracket at a place, or undef.
sub end_of_brackets {
    my ($code, $at) = @_;
    my $depth = 0;
    for (my $i = $at; $i < length($code); ++$i) {
        my $c = substr($code, $i, 1);
        ++$depth if $c =~ /[(\[{]/;
        --$depth if $c =~ /[)\]}]/;
        return $i if $depth == 0;
    }
    return undef;
}

my %opposite = (
    '==' => '!=', '!=' => '==', '<' => '<=', '>' => '>=', '<=' => '<', '>=' => '>',
    '&&' => '||', '||' => '&&', '+' => '-', '-' => '+', 'true' => 'false', 'false' => 'true',
);
my $no_statement = qr/^(?:return|if|for|while|switch|case|const|auto|using|static|constexpr|else|do|break|continue|goto|
    Q_\w+|QT_\w+|public|private|protected|signals|default|friend|template|struct|class|enum|namespace|extern)\b/x;

# Lists the faults: kind, place, length and what is put there instead.
sub faults_of {
    my ($text) = @_;
    my $code = code_of($text);
    my %found;
    while ($code =~ /(?<![\w.])(0[xX][0-9a-fA-F]+|\d+)(?![\w.])/g) {
        my $number = $1;
        push @{$found{number}}, [$-[1], length $number, $number =~ /^0x/i ? sprintf('0x%x', hex($number) + 1) : $number + 1];
    }
    while ($code =~ /\b(true|false)\b/g) {
        push @{$found{boolean}}, [$-[1], length $1, $opposite{$1}];
    }
    while ($code =~ /(?<= )(==|!=|<=|>=|<|>|&&|\|\||\+|-)(?= )/g) {
        push @{$found{$1 =~ /[&|]/ ? 'connective' : $1 =~ /[+-]/ ? 'sum' : 'comparison'}}, [$-[1], length $1, $opposite{$1}];
    }
    while ($code =~ /\bif (?:constexpr )?(\()/g) {
        my $begin = $-[1];
        my $end = end_of_brackets($code, $begin);
        next if !defined $end;
        my $condition = substr($text, $begin + 1, $end - $begin - 1);
        next if $condition =~ /;|\b(?:const )?auto\b.*=/s;
        push @{$found{condition}}, [$begin + 1, length $condition, "!($condition)"];
    }
    while ($code =~ /(!)(?=[A-Za-z_(])/g) {
        push @{$found{negation}}, [$-[1], 1, ''];
    }
    while ($code =~ /"(s+)"/g) {
        push @{$found{text}}, [$+[1], 0, '~'];
    }
    while ($code =~ /^( +)((?:emit |delete |\+\+|--)?[A-Za-z_][\w:.>\[\]-]*(?:\(| (?:=|\+=|-=|\|=|&=|<<) |;))/gm) {
        my $begin = $+[1];
        my $statement = substr($code, $begin);
        next if $statement =~ $no_statement;
        my $end = $begin;
        while ($end < length($code)) {
            my $c = substr($code, $end, 1);
            last if $c eq ';' || $c eq '}';
            if ($c =~ /[(\[{]/) {
                my $close = end_of_brackets($code, $end);
                last if !defined $close;
                $end = $close;
            }
            ++$end;
        }
        next if substr($code, $end, 1) ne ';';
        my $before = substr($code, 0, $begin);
        next if $before !~ /[;{})]\s*$|\belse\s*$/; # it goes on from the line before
        push @{$found{statement}}, [$begin, $end - $begin, ''];
    }
    return \%found;
}

# ---- The copy and its build

sub sources {
    my @files = split(/\0/, `git ls-files -z --cached --others --exclude-standard`);
    return grep { -f $_ } @files;
}

sub bring_up_to_date {
    for my $file (sources()) {
        my $target = "$copy/$file";
        next if -e $target && compare($file, $target) == 0;
        make_path(dirname($target));
        copy($file, $target) or die "$target: $!\n";
        chmod((stat $file)[2] & 07777, $target);
    }
}

sub run_quietly {
    my ($log, @command) = @_;
    my $process = fork() // die "fork: $!\n";
    if ($process == 0) {
        open(STDIN, '<', '/dev/null');
        open(STDOUT, '>', $log) or die;
        open(STDERR, '>&', \*STDOUT);
        exec(@command) or die "$command[0]: $!\n";
    }
    waitpid($process, 0);
    return $? == 0;
}

sub tests_matching {
    my ($pattern) = @_;
    my @lines = `ctest --test-dir "$build" -N`;
    return grep { /$pattern/ } map { /Test\s+#\d+: (\S+)/ ? $1 : () } @lines;
}

sub target_of {
    my ($test) = @_;
    (my $name = $test) =~ s/^\w+\.//;
    return "${name}_test";
}

sub build_targets {
    my (@targets) = @_;
    return run_quietly("$root/build/faults/build.log", 'cmake', '--build', $build, '-j', '2', '--target', @targets);
}

sub run_tests {
    my ($log, $seconds, @tests) = @_;
    return 1 if !@tests;
    my $pattern = '^(' . join('|', map { quotemeta } @tests) . ')$';
    return run_quietly($log, 'ctest', '--test-dir', $build, '-j', '2', '--stop-on-failure', '--timeout', $seconds,
        '-R', $pattern);
}

# The digest of a test's program, or of nothing where the program is only told which other one to run.
sub digest_of {
    my ($test) = @_;
    my $program = "$build/tests/" . target_of($test);
    return $test =~ /^app\./ ? '' : Digest::SHA->new(256)->addfile($program)->hexdigest;
}

# ---- What was judged before

sub unobservable {
    my %known;
    return \%known if !-f 'tests/unobservable.txt';
    for my $line (split(/\n/, contents('tests/unobservable.txt'))) {
        next if $line =~ /^\s*(#|$)/;
        my ($file, $before, $after) = split(/ \| /, $line);
        $known{"$file | $before | $after"} = 1;
    }
    return \%known;
}

# ---- The faults of one folder

sub trimmed {
    my ($text) = @_;
    $text =~ s/\s+/ /g;
    $text =~ s/^ | $//g;
    return $text;
}

sub line_at {
    my ($text, $begin, $length) = @_;
    my $from = rindex($text, "\n", $begin - 1) + 1;
    my $to = index($text, "\n", $begin + $length);
    return trimmed(substr($text, $from, $to - $from));
}

sub share_of_folders {
    my ($compiled) = @_;
    my %lines;
    for my $file (@$compiled) {
        (my $folder = $file) =~ s{/.*}{};
        $lines{$folder} += () = contents("$copy/$file") =~ /\n/g;
    }
    my $all = sum(values %lines);
    my %share = map { $_ => max(3, int($count * $lines{$_} / $all + 0.5)) } keys %lines;
    my ($largest) = sort { $share{$b} <=> $share{$a} || $a cmp $b } keys %share;
    $share{$largest} += $count - sum(values %share);
    return \%share;
}

sub plan_folder {
    my ($folder, $files) = @_;
    begin_random("$seed $folder");
    my %of_kind;
    for my $file (@$files) {
        my $faults = faults_of(contents("$copy/$file"));
        push @{$of_kind{$_}}, map { [$file, @$_] } @{$faults->{$_}} for keys %$faults;
    }
    my @kinds = sort keys %of_kind;
    my @plan;
    while (@kinds) {
        my $kind = $kinds[random(scalar @kinds)];
        my $list = $of_kind{$kind};
        push @plan, [$kind, @{splice(@$list, random(scalar @$list), 1)}];
        @kinds = grep { @{$of_kind{$_}} } @kinds;
    }
    return @plan;
}

sub elapsed_text {
    my ($since) = @_;
    my $seconds = time - $since;
    return sprintf('%d:%02d', int($seconds / 60), $seconds % 60);
}

my $begun = time;
my %result = (noticed => 0, known => 0, unnoticed => 0);
my @survivors;
my $known = unobservable();

sub try_folder {
    my ($folder, $wanted, $files) = @_;
    my @tests = tests_matching($tests_of{$folder});
    my %targets = map { target_of($_) => 1 } @tests;
    build_targets(sort keys %targets) or die "The sources do not build, see build/faults/build.log\n";
    my (@quick, @slow, %sound);
    for my $test (@tests) {
        my $start = time;
        run_tests("$root/build/faults/test.log", 600, $test) or die "$test fails without a fault, see build/faults/test.log\n";
        my $taken = time - $start;
        push @{$taken > $slow ? \@slow : \@quick}, [$test, $patience * max($slow, $taken)];
        $sound{$test} = digest_of($test);
    }
    my $tried = 0;
    for my $fault (plan_folder($folder, $files)) {
        last if $tried == $wanted;
        my ($kind, $file, $begin, $length, $instead) = @$fault;
        my $text = contents("$copy/$file");
        my $planted = $text;
        substr($planted, $begin, $length) = $instead;
        write_contents("$copy/$file", $planted);
        my $built = build_targets(sort keys %targets);
        # What is the same to the byte would say the same.
        my $differs = sub { $sound{$_[0]} eq '' || digest_of($_[0]) ne $sound{$_[0]} };
        my $passes = $built && run_tests("$root/build/faults/test.log", $patience * $slow,
            grep { $differs->($_) } map { $_->[0] } @quick);
        for my $test (@slow) {
            last if !$passes;
            $passes = run_tests("$root/build/faults/test.log", $test->[1], $test->[0]) if $differs->($test->[0]);
        }
        write_contents("$copy/$file", $text);
        next if !$built; # no fault that a compiler would let through
        ++$tried;
        my $before = line_at($text, $begin, $length);
        my $after = line_at($planted, $begin, length $instead);
        my $verdict = !$passes ? 'noticed' : $known->{"$file | $before | $after"} ? 'known' : 'unnoticed';
        ++$result{$verdict};
        my $line = 1 + (() = substr($text, 0, $begin) =~ /\n/g);
        push @survivors, "$file:$line ($kind)\n    $before\n    $after\n" if $verdict eq 'unnoticed';
        printf("%s %s %d of %d, %s: %s:%d (%s)\n", elapsed_text($begun), $folder, $tried, $wanted, $verdict, $file, $line,
            $kind);
        print "    $before\n    $after\n" if $verdict eq 'unnoticed';
    }
}

$| = 1;
bring_up_to_date();
make_path($build);
run_quietly("$root/build/faults/configure.log", 'cmake', '-S', $copy, '-B', $build, '-G', 'Ninja',
    '-DCMAKE_BUILD_TYPE=Debug', '-DCMAKE_EXPORT_COMPILE_COMMANDS=ON',
    "-DCMAKE_CROSSCOMPILING_EMULATOR=perl;$root/tools/faults.pl;--until-failure")
    or die "Unable to configure, see build/faults/configure.log\n";
my $commands = contents("$build/compile_commands.json");
my @compiled = grep { my $file = $_; m{^[a-z]+/[^/]+\.(cpp|h)$} && exists $tests_of{$file =~ s{/.*}{}r}
        && (/\.h$/ ? /^base/ : $commands =~ /\Q$copy\/$file"/) } sort(sources());
my $share = share_of_folders(\@compiled);
for my $folder (@asked ? @asked : sort keys %$share) {
    try_folder($folder, $share->{$folder}, [grep { m{^$folder/} } @compiled]);
}

print "\nNot noticed:\n", @survivors if @survivors;
my $observable = $result{noticed} + $result{unnoticed};
printf("\n%d faults, seed %s, %s: %d of %d that can be observed were noticed; %d cannot be\n",
    $observable + $result{known}, $seed, elapsed_text($begun), $result{noticed}, $observable, $result{known});
exit($result{unnoticed} == 0 ? 0 : 1);
