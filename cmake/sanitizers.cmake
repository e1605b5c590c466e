# SPDX-License-Identifier: MIT
# VORNA_SANITIZER instruments everything that is built: "asan-ubsan", "tsan" or empty.
set(VORNA_SANITIZER "" CACHE STRING "Sanitizers to build with: asan-ubsan, tsan or none")

if(VORNA_SANITIZER STREQUAL "asan-ubsan")
  set(sanitizer_flags -fsanitize=address,undefined -fno-sanitize-recover=undefined)
elseif(VORNA_SANITIZER STREQUAL "tsan")
  set(sanitizer_flags -fsanitize=thread)
elseif(VORNA_SANITIZER)
  message(FATAL_ERROR "VORNA_SANITIZER is '${VORNA_SANITIZER}'; known are asan-ubsan and tsan")
endif()

if(VORNA_SANITIZER)
  add_compile_options(${sanitizer_flags} -fno-omit-frame-pointer)
  add_link_options(${sanitizer_flags})
endif()

# vorna_sanitize(TARGET): gives an executable the suppressions that this project stands by.
function(vorna_sanitize target)
  if(VORNA_SANITIZER)
    target_sources(${target} PRIVATE ${CMAKE_SOURCE_DIR}/cmake/sanitizer_suppressions.cc)
  endif()
endfunction()
