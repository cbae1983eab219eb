// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/rpm/handle_types.h"

#include <string>
#include <thread>

namespace Common::Rpm {

/// The decompressed payload of a package file. Decompression takes about as long as making the files does; a thread
/// that runs ahead of the reader lets the two happen at once.
///
/// A payload that cannot be read or decompressed is one that ends early: its archive says where it has to end.
class PayloadStream {
public:
  /// `file` stands at the payload and belongs to the thread from now on. A compressor that librpm does not know leaves
  /// the payload as it is. Throws std::system_error when the process may have no more files or threads, or when librpm
  /// takes `compressor` for no name at all.
  PayloadStream(FileHandle file, const std::string& compressor);

  /// Waits for the thread, which stops at its next write.
  ~PayloadStream();

  PayloadStream(const PayloadStream&) = delete;
  PayloadStream& operator=(const PayloadStream&) = delete;

  /// To be read from by one thread. Blocks for the decompression alone.
  FD_t reader() const { return m_reader.get(); }

private:
  FileHandle m_reader;
  std::thread m_thread;
};

} // namespace Common::Rpm
