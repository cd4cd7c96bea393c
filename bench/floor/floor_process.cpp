// SPDX-License-Identifier: MIT
// floor_process: the least that a command costs: a C++ program with the libraries of tvsc, each of which it would use
// if it were told anything.
#include <fmt/core.h>
#include <rpc/rpc.h>

#include <iostream>

int main(int argc, char **) {
    if (argc > 1) {
        clnt_pcreateerror("floor_process");
        fmt::print("usage: floor_process\n");
        std::cout << argc;
    }
}
