#!/usr/bin/perl
# The documents against the sources and programs. Usage: pages_test.pl TREE PROGRAM... (katd, katc, katlist, katcatalog, katd-syslog, katd-update, katd-http)
use strict;
use warnings;
use File::Temp 'tempdir';

my ($root, %program) = (shift, map { m{([^/]+)$} => $_ } @ARGV);
my $wrong = 0;

sub content { local (@ARGV, $/) = @_; return join '', <> }
sub wrong { $wrong += print "@_\n" }
# Sets as arrays, equal or not.
sub compare {
    my ($left, $in_left, $right, $in_right) = @_;
    my (%left, %right);
    @left{@$in_left} = @right{@$in_right} = ();
    wrong("$left lacks: $_") for grep { !exists $left{$_} } sort keys %right;
    wrong("$right lacks: $_") for grep { !exists $right{$_} } sort keys %left;
    wrong("nothing found in $left and $right") unless %left && %right;
}

# The daemon's messages with their kinds. A format is one or more string literals.
my @written;
for my $path (glob "$root/daemon/*/*.cpp") {
    my $source = content($path);
    while ($source =~ /\b(INFO|ERR|DBG)_MSG\(\s*((?:"(?:[^"\\]|\\.)*"\s*)*)/g) {
        my ($kind, $literals) = ($1 eq 'INFO' ? 'INF' : $1, $2);
        my $text = join '', $literals =~ /"((?:[^"\\]|\\.)*)"/g;
        push @written, "$kind " . $text =~ s/\\n$//r;
    }
}
my @explained = map { s/\\\|/|/gr } content("$root/docs/messages.md") =~ /^\| ((?:INF|ERR|DBG) \| `.+?)` \| .*\S \|$/mg;
s/ \| `/ / for @explained;
compare('the daemon', \@written, 'docs/messages.md', \@explained);
my %times;
wrong("docs/messages.md has it twice: $_") for grep { $times{$_}++ == 1 } @explained;

# Every option that --help shows is described in the manual page, and no other. katd shows its usage only in a valid home.
mkdir(($ENV{KATD_DIR} = tempdir(CLEANUP => 1)) . "/conf");
system('cp', "$root/demo/conf/katd.ini", "$ENV{KATD_DIR}/conf");
my %commands = ('katd.8' => ['katd -h'], 'katd-syslog.8' => ['katd-syslog --help'], 'katd-update.8' => ['katd-update --help'], 'katd-http.8' => ['katd-http --help'],
    'katc.1' => [map { "katc $_ --help" } '', 'ctl', map { "ctl $_" } qw(log_level timeout save_cache urls_stat reload)],
    'katc-helper.1' => ['katc helper --help'], 'katlist.1' => [map { "katlist $_ --help" } '', qw(build check find stat)],
    'katcatalog.1' => [map { "katcatalog $_ --help" } '', qw(import update sync push find stat check dump)]);
for my $page (grep { $program{(split / /, $commands{$_}[0])[0]} } sort keys %commands) {
    my (@shown, @described);
    for (@{$commands{$page}}) {
        my ($name, $words) = /^(\S+) (.*)/;
        push @shown, grep { /^-/ } map { s/^[^-]//r } `$program{$name} $words 2>&1 < /dev/null` =~ /(?:^|[][\s,(|\/])--?[A-Za-z][\w-]*/mg;
    }
    # A line with .It describes an option; one without may do so, or only mention it.
    my %shown = map { $_ => 1 } @shown;
    for (content("$root/man/$page") =~ /^\.((?:It )?Fl .*)/mg) {
        my $item = s/^It //;
        my @options = grep { /^--?[A-Za-z]/ } map { "-$_" } split /[ ,]+/, s/ (Ar|Cm|Op|Ns|No) .*//r =~ s/(^| )Fl / /gr;
        push @described, grep { $item || $shown{$_} } @options;
    }
    compare("--help ($page)", \@shown, "man/$page", \@described);
}

my @keys = content("$root/demo/conf/katd.ini") =~ /^([a-z_]+) *=/mg;
push @keys, content($_) =~ /\(ini, (?:\w+, )?"(\w+)"/g for glob "$root/daemon/KatdConf/*.cpp";
compare('the settings', \@keys, 'man/katd.ini.5', [content("$root/man/katd.ini.5") =~ /^\.It Ic ([A-Za-z_]+)$/mg]);

for my $path (glob "$root/man/*.[1-9]") {
    my $page = content($path);
    wrong($_) for grep { !/referenced manual not found|outdated mandoc.db/ } `mandoc -T lint -W style $path 2>&1`;
    wrong("$path is not ASCII") if $page =~ /[^\0-\x7f]/;
    -e "$root/man/$1.$2" or wrong("$path refers to $1($2)") while $page =~ /Xr (kat\S*) ([1-9])/g;
}

my ($version) = content("$root/CMakeLists.txt") =~ /^project\(katd VERSION ([\d.]+)/m;
wrong("debian/changelog does not begin with $version") unless content("$root/debian/changelog") =~ /^katd \(\Q$version\E\) /;
exit($wrong ? 1 : 0);
