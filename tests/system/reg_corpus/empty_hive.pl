# SPDX-License-Identifier: MIT
# Prints an empty hive, for hivexregedit makes none: the header, and a block with the root key and its security record.
use strict;
use warnings;

my $none = 0xFFFFFFFF;
my $key = pack 'l< a2 v Q< V V V V V V V V V V v v V V V V v v a4', -88, 'nk', 0x2C, 0, 0, $none, 0, 0, $none, $none, 0,
    $none, 120, $none, 0, 0, 0, 0, 0, 0, 4, 0, 'root';
my $security = pack 'l< a2 v V V V V a20', -48, 'sk', 0, 120, 120, 1, 20, pack('C C v V V V V', 1, 0, 0x8000, 0, 0, 0, 0);
my $block = pack('a4 V V Q< Q< V', 'hbin', 0, 4096, 0, 0, 0) . pack('a88', $key) . pack('a48', $security);
my $header = pack 'a4 V V Q< V V V V V V V x460', 'regf', 1, 1, 0, 1, 3, 0, 1, 32, 4096, 1;
my $sum = 0;
$sum ^= $_ for unpack 'V127', $header;
print pack('a508 V', $header, $sum), "\0" x 3584, pack('a4096', $block . pack('l<', 4096 - length $block));
