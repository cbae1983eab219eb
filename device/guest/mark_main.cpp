// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "device/guest/mark.h"

#include <cstdlib>

/// Usage: device-mark LABEL
int main(int count, char** arguments) {
  if (count != 2)
    return EXIT_FAILURE;
  Device::mark(arguments[1]);
}
