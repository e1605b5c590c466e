// SPDX-License-Identifier: MIT
// The C face of the native-image library: arguments are checked here, failures are logged here,
// once, and become codes. Entered by any thread; the count of initializations is its only state.
#include "platform/native_image.h"

#include <fcntl.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <exception>
#include <string>

#include "base/failure.h"
#include "base/files.h"
#include "base/host_log.h"
#include "images/image_build.h"
#include "images/image_removal.h"
#include "images/pe_image.h"

namespace host {
namespace {

constexpr unsigned kMostThreads = 1024;

std::atomic<int> initializations{0};

template <typename Operation>
int Guarded(const char* what, Operation operation) {
  try {
    operation();
    return 0;
  } catch (const Failure& failure) {
    HOST_LOG(ERROR, "%s: %s", what, failure.what());
    return failure.code();
  } catch (const std::exception& error) {
    HOST_LOG(ERROR, "%s: %s", what, error.what());
    return NI_ERROR_SYSTEM;
  }
}

CompileMode ModeOf(const NativeImageOption& option) {
  CompileMode mode;
  mode.one_at_a_time = (option.flags & NI_FLAG_SINGLE_THREAD) != 0;
  if (option.thread_count != nullptr) {
    char* end = nullptr;
    const unsigned long count = strtoul(option.thread_count, &end, 10);
    if (*end != '\0' || count == 0 || count > kMostThreads) {
      throw Failure(NI_ERROR_INVALID_ARGUMENT,
                    std::string("\"") + option.thread_count + "\" is no number of threads");
    }
    mode.threads = static_cast<unsigned>(count);
  } else if (mode.one_at_a_time) {
    mode.threads = 1;
  }
  return mode;
}

void Create(CompileTarget target, const NativeImageOption& option) {
  for (const std::string& place : target.places) SweepStaging(place);
  ImageBuild(std::move(target), ModeOf(option), (option.flags & NI_FLAG_INPUT_BUBBLE) != 0).Run();
}

void RequireArguments(const char* text, const NativeImageOption* option) {
  if (text == nullptr || option == nullptr) {
    throw Failure(NI_ERROR_INVALID_ARGUMENT, "null argument");
  }
}

}  // namespace
}  // namespace host

int initNativeImageCommon() {
  return host::Guarded("Initialization", [] {
    host::Compiler::Find();
    for (const char* area : {host::kReadWriteApplications, host::kReadOnlyApplications}) {
      host::SweepStaging(area);
    }
    ++host::initializations;
  });
}

int finalizeNativeImageCommon() {
  return host::Guarded("Finalization", [] {
    int count = host::initializations;
    do {
      if (count == 0) throw host::Failure(NI_ERROR_INVALID_ARGUMENT, "without an initialization");
    } while (!host::initializations.compare_exchange_weak(count, count - 1));
  });
}

int createNativeImagesUnderPackageRoot(const char* package_id, const NativeImageOption* option) {
  return host::Guarded("Compile", [&] {
    host::RequireArguments(package_id, option);
    host::Create(host::CompileTarget::ForPackage(package_id), *option);
  });
}

int createNativeImagesUnderDirs(const char* directories, const NativeImageOption* option) {
  return host::Guarded("Compile", [&] {
    host::RequireArguments(directories, option);
    host::Create(host::CompileTarget::ForDirectories(directories), *option);
  });
}

int removeNativeImagesUnderPackageRoot(const char* package_id) {
  return host::Guarded("Removal", [&] {
    if (package_id == nullptr) throw host::Failure(NI_ERROR_INVALID_ARGUMENT, "null argument");
    host::RemoveImages(host::CompileTarget::ForPackage(package_id));
  });
}

bool isReadyToRunImage(const char* path) {
  struct stat status;
  if (path == nullptr) return false;
  try {
    // A link to an image is an image: the runtime would load it.
    const host::UniqueFd file(open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    return file && fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode) &&
           host::ReadPeImage(file.get(), status, false).kind == host::PeKind::kReadyToRun;
  } catch (const std::exception&) {
    return false;
  }
}
