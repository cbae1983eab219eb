# SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
# SPDX-License-Identifier: MIT

# The outside libraries. scripts/setup installs them.
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
find_package(OpenSSL 3 REQUIRED)
find_package(Boost 1.74 REQUIRED COMPONENTS filesystem)
pkg_check_modules(RPM REQUIRED IMPORTED_TARGET rpm>=4.18)

# The exported targets of a static sdbus-c++ use Threads and Systemd but do not find them.
pkg_check_modules(Systemd REQUIRED IMPORTED_TARGET GLOBAL libsystemd)
find_package(sdbus-c++ 2 REQUIRED CONFIG)
find_package(CLI11 2 REQUIRED CONFIG)
find_package(nlohmann_json 3 REQUIRED CONFIG)

if(KRV_BUILD_TESTS)
  find_package(GTest REQUIRED)
  include(GoogleTest)
endif()
