// SPDX-License-Identifier: MIT
// commands: what tvreg does, a function a command. Data goes to standard output. Each returns the status to exit with,
// or throws a Failure of registry_access.h, which has it.
#pragma once

#include "tvreg/options.h"

int Query(const Options &options); // query.cpp
int Find(const Options &options);

int List(const Options &options); // look.cpp
int Get(const Options &options);
int Tree(const Options &options);
int Version(const Options &options);

int Add(const Options &options); // change.cpp
int Set(const Options &options);
int Delete(const Options &options);
int Remove(const Options &options); // rm
int Copy(const Options &options);

int Export(const Options &options); // export.cpp
int Import(const Options &options); // import.cpp

int SaveHive(const Options &options); // hives.cpp
int RestoreHive(const Options &options);
int LoadHive(const Options &options);
int UnloadHive(const Options &options);

int Compare(const Options &options); // compare.cpp
int Diff(const Options &options);

int Lint(const Options &options);  // lint.cpp
int Watch(const Options &options); // watch.cpp
int Edit(const Options &options);  // edit.cpp

int ListSnapshots(const Options &options); // snapshot.cpp
int TakeSnapshot(const Options &options);
int DiffSnapshot(const Options &options);
int RestoreSnapshot(const Options &options);
