// SPDX-License-Identifier: MIT
// How far a compile of one package is, as its files show: native images that have been written
// since it was asked for, staged or in their place. One thread.
#ifndef TOOLS_VORNACTL_COMPILE_PROGRESS_H
#define TOOLS_VORNACTL_COMPILE_PROGRESS_H

#include <time.h>

#include <chrono>
#include <set>
#include <string>

#include "package_facts.h"

namespace vornactl {

class CompileProgress {
 public:
  explicit CompileProgress(const std::string& package);

  const PackageFacts& facts() const { return facts_; }
  std::string ElapsedText() const;
  // "3 of 8 native images". Staged ones count only for who may read where they are staged.
  std::string ImagesText() const;

 private:
  size_t CountStaged() const;
  size_t CountInPlace() const;
  bool IsNewImage(const std::string& path) const;

  PackageFacts facts_;
  std::set<std::string> wanted_;  // names of the images
  size_t wanted_count_ = 0;       // two directories may have one of the same name
  std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
  timespec file_begin_ = {};
};

}  // namespace vornactl

#endif
