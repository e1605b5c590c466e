// SPDX-License-Identifier: MIT
// The AOT queue: package ids waiting for compilation, in order, mirrored to the queue file.
// Entered by: method-call threads, the worker, the main loop (recovery files). Guarded by
// aot_queue_mtx, which callers hold across a change and its write, so that the file always shows a
// state the queue was in.
#pragma once

#include <boost/optional.hpp>
#include <list>
#include <string>
#include <unordered_set>

struct AOTPackage {
  std::string package_id;

  bool operator==(const AOTPackage& other) const = default;
};

struct AOTPackageHash {
  std::size_t operator()(const AOTPackage& package) const noexcept {
    return std::hash<std::string>()(package.package_id);
  }
};

// A list in queue order and a multiset for membership, kept in step: the multiset holds each id as
// often as the list does. Ids repeat only when the queue file repeated them.
class AOTQueue {
 public:
  using const_iterator = std::list<AOTPackage>::const_iterator;

  bool empty() const { return packages_.empty(); }
  std::size_t size() const { return packages_.size(); }
  const_iterator begin() const { return packages_.begin(); }
  const_iterator end() const { return packages_.end(); }
  boost::optional<const AOTPackage&> front() const;
  bool contains(const std::string& package_id) const;
  // The first entry with this id in queue order, or end().
  const_iterator find(const std::string& package_id) const;

  void push_back(const std::string& package_id);
  // Aborts the process when list and multiset have come apart.
  void pop_front();
  // Drops one entry, which must be of this queue.
  void erase(const_iterator position);

 private:
  std::list<AOTPackage> packages_;
  std::unordered_multiset<AOTPackage, AOTPackageHash> packages_in_aot_queue_;
};

// Where the queue outlives the daemon. The data directory is made at start-up.
inline constexpr char kDataDirectory[] = "/opt/usr/home/owner/share/.aot-daemon";
inline constexpr char kQueueFile[] = "/opt/usr/home/owner/share/.aot-daemon/aot_queue.txt";
inline constexpr char kQueueTemporaryFile[] =
    "/opt/usr/home/owner/share/.aot-daemon/aot_queue_temp.txt";

// Rewrites the queue file, one id a line, by way of the temporary file. The caller holds
// aot_queue_mtx. Failures are logged; the file then keeps what it had.
void updateAOTQueueFile(const AOTQueue& queue);
