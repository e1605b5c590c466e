// SPDX-License-Identifier: MIT
/* Ahead-of-time compilation of .NET assemblies into native images.
 *
 * The native image of DIR/X.dll is DIR/.native_image/X.ni.dll. Every function may be called from
 * any thread, several at once; 0 is success and a negative NI_ERROR_* value a failure. */
#ifndef PLATFORM_NATIVE_IMAGE_H
#define PLATFORM_NATIVE_IMAGE_H

#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

enum {
  /* The assemblies of one call are compiled as one version bubble and committed as a whole. */
  NI_FLAG_INPUT_BUBBLE = 0x10,
  /* The call compiles the assemblies under <package root>/bin. */
  NI_FLAG_PACKAGE_ROOT = 0x80,
  /* With thread_count "1": one thread at a time, at the caller's nice value. */
  NI_FLAG_SINGLE_THREAD = 0x2000
};

enum {
  /* A system call failed for a reason that has no value of its own here. */
  NI_ERROR_SYSTEM = -1,
  /* A null or malformed argument. */
  NI_ERROR_INVALID_ARGUMENT = -2,
  /* No such package is installed. */
  NI_ERROR_UNKNOWN_PACKAGE = -3,
  /* No usable compiler, or none that serves the application's framework. */
  NI_ERROR_NO_COMPILER = -4,
  /* The framework that the application asks for is not installed. */
  NI_ERROR_NO_FRAMEWORK = -5,
  /* The file system with the package is full. */
  NI_ERROR_NO_SPACE = -6,
  /* A compiler process was ended from outside by SIGKILL, SIGTERM or SIGINT. */
  NI_ERROR_COMPILER_KILLED = -7,
  /* An assembly was replaced while it was being compiled. */
  NI_ERROR_INPUT_CHANGED = -8,
  /* There were candidates, and not one of them could be compiled. */
  NI_ERROR_ALL_FAILED = -9
};

typedef struct NativeImageOption {
  uint32_t flags;           /* NI_FLAG_* */
  const char* thread_count; /* decimal text; NULL: the compiler's own default */
} NativeImageOption;

/* Readies the library; fails when no usable compiler is found. Calls nest, each successful one
 * with its finalizeNativeImageCommon, and may come from several threads. */
int initNativeImageCommon(void);
int finalizeNativeImageCommon(void);

/* Compiles the assemblies of an installed package. 0 also when there is nothing to compile, and
 * when only some assemblies could not be compiled for reasons of their own. Whatever the result,
 * each directory holds the images it had before the call or the complete new set. */
int createNativeImagesUnderPackageRoot(const char* package_id, const NativeImageOption* option);

/* The same for the assemblies in the named directories, joined with ':', and below them. */
int createNativeImagesUnderDirs(const char* directories, const NativeImageOption* option);

/* Removes every native image under the package's root; 0 also when there are none. */
int removeNativeImagesUnderPackageRoot(const char* package_id);

/* Whether the file is a managed PE file with a ReadyToRun header; false for everything else, a
 * file that cannot be read included. */
bool isReadyToRunImage(const char* path);

#ifdef __cplusplus
}
#endif

#endif
