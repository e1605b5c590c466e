// SPDX-License-Identifier: MIT
// Side-by-side measurements: samples of this project and of its baseline, taken in turn, so that
// whatever else the machine does hits both; compared by their medians. One thread.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

namespace bench {

inline double median(std::vector<double> samples) {
  if (samples.empty()) return 0;
  const auto middle = samples.begin() + static_cast<std::ptrdiff_t>(samples.size() / 2);
  std::nth_element(samples.begin(), middle, samples.end());
  return *middle;
}

inline double seconds_of(const std::function<void()>& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

struct Comparison {
  std::vector<double> ours;
  std::vector<double> baseline;
};

// Takes `rounds` samples of each, in turn, and changes who goes first with every round.
inline Comparison in_turn(int rounds, const std::function<double()>& ours,
                          const std::function<double()>& baseline) {
  Comparison comparison;
  for (int round = 0; round < rounds; ++round) {
    if (round % 2 == 0) comparison.ours.push_back(ours());
    comparison.baseline.push_back(baseline());
    if (round % 2 == 1) comparison.ours.push_back(ours());
  }
  return comparison;
}

// One line of the table. Targets are shown for the reader; a benchmark never fails by them.
inline void print_row(const char* what, const char* unit, double ours, double baseline,
                      const char* target) {
  std::printf("%-44s %10.3f %10.3f %-8s ", what, ours, baseline, unit);
  if (baseline > 0) {
    std::printf("%6.2f  %s\n", ours / baseline, target);
  } else {
    std::printf("%6s  %s\n", "-", target);
  }
  std::fflush(stdout);
}

inline void print_row(const char* what, const char* unit, const Comparison& comparison,
                      const char* target) {
  print_row(what, unit, median(comparison.ours), median(comparison.baseline), target);
}

}  // namespace bench
