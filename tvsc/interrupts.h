// SPDX-License-Identifier: MIT
// interrupts: what the end from outside (SIGINT, SIGTERM, SIGHUP) does to a command.
#pragma once

// Ends the program through exit on an interrupt, in a thread of its own: handles are given back there, which the daemon
// would keep for ever. For their sake a closed terminal or pipe does not end it at once either. To be called once,
// before any other thread is made.
void ExitOnInterrupt();

// For a command that only looks, until it is interrupted: nothing needs to be said about it.
void EndQuietlyWhenInterrupted();

// While a child has the terminal, an editor above all, Ctrl-C is meant for it, as with system(3).
void LeaveInterruptsToChild(bool isInFront);

[[nodiscard]] bool IsInterrupted();
