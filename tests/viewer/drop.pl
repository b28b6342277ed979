#!/usr/bin/perl
# drop.pl WINDOW FILE: drops a file on an X window as a file manager does, by the XDND protocol.
use strict;
use warnings;
use X11::Protocol;

my ($target, $file) = @ARGV;
my $x = X11::Protocol->new;
my $source = $x->new_rsrc;
$x->CreateWindow($source, $x->root, 'InputOutput', 0, 'CopyFromParent', (0, 0), 1, 1, 0);
my %atom = map { $_ => $x->atom($_) } qw(XdndSelection XdndEnter XdndPosition XdndStatus XdndDrop XdndFinished
    XdndActionCopy text/uri-list);

my $status;
my $finished = 0;

# The target asks for the data and answers to each step.
$x->{event_handler} = sub {
    my %event = @_;
    if ($event{name} eq 'SelectionRequest') {
        my $property = $event{property} || $event{target};
        if ($event{target} == $atom{'text/uri-list'}) {
            $x->ChangeProperty($event{requestor}, $property, $event{target}, 8, 'Replace', "file://$file\r\n");
        } else {
            $property = 0;
        }
        $x->SendEvent($event{requestor}, 0, 0, $x->pack_event(name => 'SelectionNotify', time => $event{time},
            requestor => $event{requestor}, selection => $event{selection}, target => $event{target},
            property => $property));
    } elsif ($event{name} eq 'ClientMessage') {
        my @data = unpack 'L5', $event{data};
        $status = $data[1] & 1 if $event{type} == $atom{XdndStatus};
        $finished = 1 if $event{type} == $atom{XdndFinished};
    }
};

sub tell_target {
    my ($type, @data) = @_;
    $x->SendEvent($target, 0, 0, $x->pack_event(name => 'ClientMessage', window => $target, type => $atom{$type},
        format => 32, data => pack('L5', $source, @data)));
}

sub wait_until {
    my ($done) = @_;
    local $SIG{ALRM} = sub { die "the window does not answer\n" };
    alarm 10;
    $x->handle_input until $done->();
    alarm 0;
}

my %size = $x->GetGeometry($target);
my (undef, undef, $left, $top) =
    $x->TranslateCoordinates($target, $x->root, $size{width} / 2, $size{height} / 2);
$x->SetSelectionOwner($atom{XdndSelection}, $source, 'CurrentTime');
tell_target('XdndEnter', 5 << 24, $atom{'text/uri-list'}, 0, 0);
tell_target('XdndPosition', 0, $left << 16 | $top, 0, $atom{XdndActionCopy});
wait_until(sub { defined $status });
die "the window takes no files\n" unless $status;
tell_target('XdndDrop', 0, 0, 0, 0);
wait_until(sub { $finished });
