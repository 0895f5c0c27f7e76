#!/usr/bin/perl
# An update server for the tour: offers version 9.9 with release notes. Prints its port and serves until it
# is ended.
use strict;
use warnings;
use IO::Socket::INET;

my $server = IO::Socket::INET->new(LocalAddr => '127.0.0.1', Listen => 5, ReuseAddr => 1) or die "no port: $!";
my $base = 'http://127.0.0.1:' . $server->sockport;
$| = 1;
print $server->sockport, "\n";

my $feed = <<"XML";
<?xml version="1.0" encoding="utf-8"?>
<rss version="2.0" xmlns:sparkle="http://www.andymatuschak.org/xml-namespaces/sparkle">
  <channel>
    <title>Orvel Storage</title>
    <item>
      <title>9.9</title>
      <sparkle:releaseNotesLink>$base/notes</sparkle:releaseNotesLink>
      <enclosure url="$base/orvel-9.9.exe" sparkle:version="9.9" type="application/octet-stream"/>
    </item>
  </channel>
</rss>
XML
my $notes = '<h2>9.9</h2><ul><li>Hitrejše usklajevanje</li><li>Nove ikone</li></ul>';
$notes =~ s/\xc5\xa1/&#353;/g;

while (my $client = $server->accept) {
    my $request = <$client> // '';
    while (defined(my $line = <$client>)) { last if $line =~ /^\r?$/ }
    my ($type, $body) = $request =~ m{ /notes } ? ('text/html', $notes) : ('application/rss+xml', $feed);
    print $client "HTTP/1.1 200 OK\r\nContent-Type: $type\r\nContent-Length: ", length $body,
        "\r\nConnection: close\r\n\r\n", $body;
    close $client;
}
