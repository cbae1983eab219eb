// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tests/driver/device.h"
#include "tests/sandbox/real_service.h"

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <string>

/// A device with krv-sandbox-service as its package-manager service.
class RealDevice : public Device {
public:
  RealDevice();

  ServiceClient& client() { return m_client; }
  RealService& service() { return *m_service; }

  /// Stops the service, expects exit status 0, and starts it again.
  void reboot();

  /// Empties the pre-install directory for the next image.
  void clearImage() const;

  /// The expected log: the lines for each file name of the pre-install directory, in the order of the listing, then the
  /// time.
  using Lines = std::function<std::string(const std::filesystem::path&)>;
  std::string expectedLog(const std::map<std::string, Lines>& linesOf) const;

  /// The packages that rpm finds in the device's database, one per line, sorted: "notes 1.0-1: " and its files.
  std::string database() const;
  /// The registry with T for each timestamp.
  std::string events() const;

private:
  std::unique_ptr<RealService> m_service;
  ServiceClient m_client;
};
