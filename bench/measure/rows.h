// SPDX-License-Identifier: MIT
// rows: what is measured, one function a group of rows of the table. bench/README.md explains each.
#pragma once

#include "bench/measure/table.h"

#include <functional>

struct Bench {
    int rounds = 7;
    bool quick = false;                                // a tenth of the samples: for trying the program itself out
    std::function<bool(const std::string &)> isWanted; // whether rows of this name are asked for
    std::vector<Row> rows = {};                        // so far
};

void AddRow(Bench &bench, Row row); // keeps and prints it
int Samples(const Bench &bench, int samples);
std::string Thousands(int number); // 1,000

void MeasureStatusQuery(Bench &bench);
void MeasureManyClients(Bench &bench);
void MeasureEnumeration(Bench &bench);
void MeasureRegistry(Bench &bench);
void MeasureCommits(Bench &bench);
void MeasureMillion(Bench &bench);
void MeasureLoad(Bench &bench);
void MeasureStart(Bench &bench);
void MeasureCommandLine(Bench &bench);
void MeasureIdleConnections(Bench &bench);
void MeasureStorm(Bench &bench);
void MeasureMemory(Bench &bench);
void MeasureInProcess(Bench &bench);
