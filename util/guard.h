// SPDX-License-Identifier: MIT
// guard: locals that are released at the end of their scope, by one of our own free functions.
//
// exit and exec run no guards.
#pragma once

#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <type_traits>

template <auto Fn>
using Calls = std::integral_constant<decltype(Fn), Fn>; // a deleter without state

inline void FreeText(char *text) { std::free(text); }
using HeapText = std::unique_ptr<char, Calls<&FreeText>>;

inline void CloseDescriptorAt(int *descriptor) { (void)close(*descriptor); }
using DescriptorGuard = std::unique_ptr<int, Calls<&CloseDescriptorAt>>; // points at a local descriptor
