// SPDX-License-Identifier: MIT
// floor_process: the least that a command costs: a program that does nothing and needs no library but that of C.
int main() {}
