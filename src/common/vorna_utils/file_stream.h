// SPDX-License-Identifier: MIT
// An owned C stream.
#pragma once

#include <cstdio>
#include <memory>

struct FileClose {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using FilePtr = std::unique_ptr<std::FILE, FileClose>;
