// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-image-check/elf.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <span>

#include <elf.h>
#include <unistd.h>

namespace ImageCheck {

namespace {

constexpr std::uint16_t loongArch = 258; // EM_LOONGARCH of a newer elf.h

struct Architecture {
  std::uint16_t machine;
  std::uint8_t wordSize;
  std::uint8_t byteOrder;
  const char* name;
};

constexpr auto architectures = std::to_array<Architecture>({
    {EM_X86_64, ELFCLASS64, ELFDATA2LSB, "x86_64"},
    {EM_386, ELFCLASS32, ELFDATA2LSB, "i686"},
    {EM_AARCH64, ELFCLASS64, ELFDATA2LSB, "aarch64"},
    {EM_RISCV, ELFCLASS64, ELFDATA2LSB, "riscv64"},
    {EM_PPC64, ELFCLASS64, ELFDATA2LSB, "ppc64le"},
    {EM_PPC64, ELFCLASS64, ELFDATA2MSB, "ppc64"},
    {EM_S390, ELFCLASS64, ELFDATA2MSB, "s390x"},
    {EM_MIPS, ELFCLASS32, ELFDATA2LSB, "mipsel"},
    {EM_MIPS, ELFCLASS64, ELFDATA2LSB, "mips64el"},
    {loongArch, ELFCLASS64, ELFDATA2LSB, "loongarch64"},
});

/// The number at `offset`, whatever the byte order of this machine is.
std::uint32_t number(std::span<const unsigned char> bytes, std::size_t offset, std::size_t size) {
  const bool isLittle = bytes[EI_DATA] == ELFDATA2LSB;
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < size; ++i)
    value = value << 8 | bytes[offset + (isLittle ? size - 1 - i : i)];
  return value;
}

} // namespace

std::string architectureOfProgram(const Common::Posix::FileDescriptor& file) {
  // Up to e_machine the headers of both word sizes are the same.
  std::array<unsigned char, sizeof(Elf32_Ehdr)> header{};
  if (!file || pread(file.get(), header.data(), header.size(), 0) != ssize_t{header.size()} ||
      std::memcmp(header.data(), ELFMAG, SELFMAG) != 0)
    return "";
  const std::uint32_t machine = number(header, offsetof(Elf32_Ehdr, e_machine), 2);
  if (machine == EM_ARM && header[EI_CLASS] == ELFCLASS32) {
    const std::uint32_t flags = number(header, offsetof(Elf32_Ehdr, e_flags), 4);
    return (flags & EF_ARM_ABI_FLOAT_HARD) != 0 ? "armv7hl" : "armv7l";
  }
  for (const Architecture& architecture : architectures)
    if (machine == architecture.machine && header[EI_CLASS] == architecture.wordSize &&
        header[EI_DATA] == architecture.byteOrder)
      return architecture.name;
  return "";
}

} // namespace ImageCheck
