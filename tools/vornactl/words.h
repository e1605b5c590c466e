// SPDX-License-Identifier: MIT
// The daemon's numbers in words. Constants; any thread. A number that a later daemon may send has
// words too.
#ifndef TOOLS_VORNACTL_WORDS_H
#define TOOLS_VORNACTL_WORDS_H

#include <string>

namespace vornactl {

struct Words {
  const char* name;    // for scripts
  const char* text;    // for people
  const char* advice;  // what to do next; may be empty
};

// A result of any method.
Words ResultWords(int result);
// What the daemon's worker does.
Words WorkerWords(int worker);

// "no such package (6)"
std::string WithNumber(const Words& words, int number);

}  // namespace vornactl

#endif
