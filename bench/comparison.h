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

// The median of the rounds' ratios: the two samples of a round were taken one after the other, so
// that a load which comes and goes between rounds does not show in it.
inline double ratio(const Comparison& comparison) {
  std::vector<double> ratios;
  for (std::size_t round = 0; round < comparison.ours.size(); ++round) {
    ratios.push_back(comparison.ours[round] / comparison.baseline[round]);
  }
  return median(ratios);
}

// One line of the table. Targets are shown for the reader; a benchmark never fails by them.
inline void print_row(const char* what, const char* unit, const Comparison& comparison,
                      const char* target) {
  const double baseline = median(comparison.baseline);
  std::printf("%-44s %10.3f %10.3f %-8s ", what, median(comparison.ours), baseline, unit);
  if (baseline > 0) {
    std::printf("%6.2f  %s\n", ratio(comparison), target);
  } else {
    std::printf("%6s  %s\n", "-", target);
  }
  std::fflush(stdout);
}

inline void print_row(const char* what, const char* unit, double ours, double baseline,
                      const char* target) {
  print_row(what, unit, Comparison{{ours}, {baseline}}, target);
}

}  // namespace bench
