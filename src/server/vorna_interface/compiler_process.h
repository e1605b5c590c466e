// SPDX-License-Identifier: MIT
// Ends the compiler of a package at once. The native-image library runs it as a child process and
// waits for it, so it is found by its command line.
// Entered by: method-call threads, PerformPackageAOT threads, the main loop; with no lock held. One
// search runs at a time.
#pragma once

// The id of the first process that the pattern finds and that is the compiler, or 0. The pattern is
// a regular expression for whole command lines, in double quotes.
int search_pid_of(const char* process_pattern);

// Kills the compiler of a package, and a second one that follows it. 0 when none is left, 15 when
// one still is, 1 for a null id. Takes about half a second and six searches at most.
int kill_crossgen(const char* package_id);
