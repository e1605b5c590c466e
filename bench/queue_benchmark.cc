// SPDX-License-Identifier: MIT
// Adding to a long queue beside writing the same file with the same calls and nothing else. Run by
// scripts/bench in a private world: it writes the daemon's own queue file.
#include <fcntl.h>

#include <cstdio>
#include <filesystem>

#include "bench/comparison.h"
#include "server/globals/globals.h"
#include "server/vorna_interface/queue_operations.h"

namespace {

constexpr int kQueueLength = 10'000;
constexpr int kRounds = 301;

std::string package_id(int number) {
  return "org.example.package" + std::to_string(number);
}

void write_file(const std::vector<std::string>& lines) {
  const int descriptor = open(kQueueTemporaryFile, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW, 0644);
  FILE* stream = fdopen(descriptor, "w");
  for (const std::string& line : lines) std::fwrite(line.data(), 1, line.size(), stream);
  std::fclose(stream);
  std::rename(kQueueTemporaryFile, kQueueFile);
}

}  // namespace

int main() {
  std::filesystem::create_directories(kDataDirectory);
  std::vector<std::string> lines;
  for (int i = 0; i < kQueueLength; ++i) {
    aot_queue.push_back(package_id(i));
    lines.push_back(package_id(i) + '\n');
  }
  const std::string added = package_id(kQueueLength);
  lines.push_back(added + '\n');

  const auto milliseconds_to_add = [&] {
    const double seconds = bench::seconds_of([&] { add_package_to_aot_queue(added.c_str()); });
    const std::lock_guard lock(aot_queue_mtx);
    aot_queue.erase(aot_queue.find(added));
    return 1e3 * seconds;
  };
  const auto milliseconds_to_write = [&] {
    return 1e3 * bench::seconds_of([&] { write_file(lines); });
  };
  bench::print_row("adding to a queue of 10,000", "ms",
                   bench::in_turn(kRounds, milliseconds_to_add, milliseconds_to_write), "<= 1.5");
}
