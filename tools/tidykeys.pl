#!/usr/bin/env perl
# Reads "ninja -t deps" of the build in the directory BUILD and lists the project's own sources that this
# computer compiles, each behind a key: the digest of all the files that it is compiled from, and of CHECKS.
# tidykeys.pl BUILD CHECKS
use strict;
use warnings;
use Cwd qw(getcwd);
use Digest::SHA qw(sha256_hex);

my ($build, $checks) = @ARGV;
my $root = getcwd();
my (%digest_of, %contents_of, $source);

sub digest {
    my ($file) = @_;
    return '' if !-f $file; # the build still knows what has been removed since
    return $digest_of{$file} //= Digest::SHA->new(256)->addfile($file)->hexdigest;
}

while (my $line = <STDIN>) {
    chomp $line;
    if ($line !~ s/^    //) { # the next object file
        undef $source;
        next;
    }
    $line = Cwd::realpath($line =~ m{^/} ? $line : "$build/$line") // next; # a compiler cache may make it relative
    $source //= $line;
    $contents_of{$source} .= digest($line);
}
for my $file (sort keys %contents_of) {
    next if $file !~ s{^\Q$root\E/}{} || $file =~ m{^build/} || !-f $file;
    print sha256_hex($checks . $contents_of{"$root/$file"}), " $file\n";
}
