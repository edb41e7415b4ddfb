#!/usr/bin/perl
# docs/messages.md and the daemon's sources name the same messages, with the same kinds.
use strict;
use warnings;

my ($root) = @ARGV;
die "usage: messages_test.pl TREE\n" unless defined $root && -d "$root/daemon";

sub content {
    my ($path) = @_;
    open(my $file, '<', $path) or die "$path: $!\n";
    local $/;
    return scalar <$file>;
}

my %written;  # "KIND text" => where
for my $path (glob "$root/daemon/*/*.cpp") {
    my $source = content($path);
    # The format is the first argument: string literals, one behind the other.
    while ($source =~ /\b(INFO|ERR|DBG)_MSG\(\s*((?:"(?:[^"\\]|\\.)*"\s*)+|[^)])/g) {
        my ($kind, $literals) = ($1 eq 'INFO' ? 'INF' : $1, $2);
        die "$path: a message whose format is no literal: $literals\n" unless $literals =~ /^"/;
        my $text = join '', $literals =~ /"((?:[^"\\]|\\.)*)"/g;
        $text =~ s/\\n$//;
        $written{"$kind $text"} = $path;
    }
}
die "no messages found in $root/daemon\n" if keys %written < 50;

my %explained;
for (split /\n/, content("$root/docs/messages.md")) {
    next unless /^\| (INF|ERR|DBG) \| `(.+?)` \| (.*\S) \|$/;
    my ($kind, $text, $meaning) = ($1, $2, $3);
    $text =~ s/\\\|/|/g;
    print "docs/messages.md has it twice: $kind $text\n" and exit 1 if exists $explained{"$kind $text"};
    $explained{"$kind $text"} = $meaning;
}

my $wrong = 0;
for (sort keys %written) {
    $wrong += print "docs/messages.md misses: $_ ($written{$_})\n" unless exists $explained{$_};
}
for (sort keys %explained) {
    $wrong += print "docs/messages.md has what nobody says: $_\n" unless exists $written{$_};
}
exit($wrong ? 1 : 0);
