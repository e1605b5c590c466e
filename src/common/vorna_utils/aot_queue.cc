// SPDX-License-Identifier: MIT
#include "common/vorna_utils/aot_queue.h"

#include <algorithm>
#include <cassert>

boost::optional<const AOTPackage&> AOTQueue::front() const {
  if (packages_.empty()) return boost::none;
  return packages_.front();
}

bool AOTQueue::contains(const std::string& package_id) const {
  return packages_in_aot_queue_.find(AOTPackage{package_id}) != packages_in_aot_queue_.end();
}

AOTQueue::const_iterator AOTQueue::find(const std::string& package_id) const {
  return std::find(packages_.begin(), packages_.end(), AOTPackage{package_id});
}

void AOTQueue::push_back(const std::string& package_id) {
  packages_in_aot_queue_.insert(AOTPackage{package_id});
  packages_.push_back(AOTPackage{package_id});
}

void AOTQueue::pop_front() {
  const auto it = packages_in_aot_queue_.find(packages_.front());
  assert(it != packages_in_aot_queue_.end());
  packages_in_aot_queue_.erase(it);
  packages_.pop_front();
}

void AOTQueue::erase(const_iterator position) {
  const auto it = packages_in_aot_queue_.find(*position);
  assert(it != packages_in_aot_queue_.end());
  packages_in_aot_queue_.erase(it);
  packages_.erase(position);
}
