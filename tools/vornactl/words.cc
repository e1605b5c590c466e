// SPDX-License-Identifier: MIT
#include "words.h"

#include <algorithm>
#include <array>
#include <utility>

#include "common/vorna_error.h"
#include "server/thread_manager/thread_statuses.h"

namespace vornactl {
namespace {

constexpr char kSeeLog[] = "the daemon's log names each cause: journalctl -t VORNA_SERVER";

constexpr std::pair<int, Words> kResults[] = {
    {VORNA_ERROR_NONE, {"done", "done", ""}},
    {VORNA_ERROR_INVALID_PARAMETER, {"invalid-parameter", "a parameter is missing", ""}},
    {VORNA_ERROR_METADATA,
     {"metadata", "its metadata cannot be read", "check the package's package.ini"}},
    {VORNA_ERROR_APP_TYPE,
     {"app-type", "its application type cannot be read", "check the package's package.ini"}},
    {VORNA_ERROR_PACKAGE_NOT_FOUND,
     {"not-found", "no such package", "check the id; packages are installed in /opt/usr/apps"}},
    {VORNA_ERROR_INSUFFICIENT_STORAGE,
     {"storage", "too little storage", "make room on the package's file system and try again"}},
    {VORNA_ERROR_NOT_AOT_TARGET,
     {"not-target", "the package does not ask to be compiled",
      "its main application asks for it with the metadata "
      "http://kivor.org/metadata/prefer_dotnet_aot=true"}},
    {VORNA_ERROR_NI_CREATION_FAILED,
     {"creation-failed", "no native images could be made", kSeeLog}},
    {VORNA_ERROR_COMPILER_KILLED, {"killed", "the compiler was killed", "try again"}},
    {VORNA_ERROR_NI_LIBRARY, {"library", "the native-image library failed", kSeeLog}},
    {VORNA_ERROR_SET_PRIORITY, {"priority", "the priority could not be set", kSeeLog}},
    {VORNA_ERROR_DAEMON_PROCESS, {"command", "the command could not be carried out", kSeeLog}},
    {VORNA_ERROR_NOT_IN_QUEUE, {"not-in-queue", "it is not in the queue", ""}},
};

constexpr std::pair<int, Words> kWorkerStates[] = {
    {THREAD_STATUS_IDLE, {"idle", "idle", ""}},
    {THREAD_STATUS_RUNNING, {"compiling", "compiling the queue", ""}},
    {THREAD_STATUS_STORAGE_INSUFFICIENT,
     {"storage-insufficient", "stopped, too little storage", "make room: the daemon ends now"}},
    {THREAD_STATUS_WAITING_FOR_CPU,
     {"waiting-for-cpu", "waiting until the CPU is less busy",
      "'vornactl cpu-gate off' compiles all the same"}},
    {THREAD_STATUS_SINGLE_PACKAGE_AOT,
     {"compiling-at-once", "compiling one package at once, for a client", ""}},
};

template <size_t count>
Words Find(const std::pair<int, Words> (&table)[count], int number) {
  const auto found = std::find_if(std::begin(table), std::end(table),
                                  [number](const auto& entry) { return entry.first == number; });
  if (found != std::end(table)) return found->second;
  return {"unknown", "unknown to this vornactl", "use the vornactl that came with the daemon"};
}

}  // namespace

Words ResultWords(int result) {
  return Find(kResults, result);
}

Words WorkerWords(int worker) {
  return Find(kWorkerStates, worker);
}

std::string WithNumber(const Words& words, int number) {
  return std::string(words.text) + " (" + std::to_string(number) + ")";
}

}  // namespace vornactl
