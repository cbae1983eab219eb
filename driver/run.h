// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

/// Runs the pre-installation of all packages in the pre-install directory. Returns the exit status of the program: 1 if
/// the service cannot be reached or the directory cannot be listed, otherwise 0, also if packages were skipped or
/// refused.
int run();
