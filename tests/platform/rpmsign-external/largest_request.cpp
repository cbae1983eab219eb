// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/platform/rpmsign-external/largest_request.h"

#include <algorithm>
#include <cstdlib>
#include <new>

std::size_t largestRequest = 0;

void* operator new(std::size_t size) {
  largestRequest = std::max(largestRequest, size);
  if (void* const memory = std::malloc(size))
    return memory;
  throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
  std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
