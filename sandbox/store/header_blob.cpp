// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "sandbox/store/header_blob.h"

#include "common/error/error.h"
#include "common/rpm/handles.h"

#include <rpm/rpmtag.h>

#include <cstdlib>
#include <memory>

namespace Sandbox {

namespace {

using Common::Rpm::Reader;

Common::Error additionError() {
  return {Common::ErrorCode::Internal, "Couldn't add to the header of a package"};
}

} // namespace

std::string exportHeader(const Reader& package) {
  unsigned int size = 0;
  const std::unique_ptr<void, decltype(&std::free)> bytes(headerExport(package.header().get(), &size), &std::free);
  if (!bytes)
    throw Common::Error(Common::ErrorCode::Internal, "Couldn't export the header of a package");
  return {static_cast<const char*>(bytes.get()), size};
}

Reader importHeader(std::string_view bytes) {
  std::string copy(bytes); // librpm's parameter is not const
  Common::Rpm::HeaderHandle header =
      Common::Rpm::ownHeader(headerImport(copy.data(), static_cast<unsigned int>(copy.size()), HEADERIMPORT_COPY));
  if (!header)
    throw Common::Error(Common::ErrorCode::Internal, "Couldn't read the header of a package");
  return Reader(std::move(header));
}

void addTexts(Reader& package, std::int32_t tag, const std::vector<std::string>& texts) {
  if (texts.empty())
    return;
  std::vector<const char*> pointers;
  for (const std::string& text : texts)
    pointers.push_back(text.c_str());
  // headerPutStringArray() refuses tag numbers that librpm does not know.
  const std::shared_ptr<std::remove_pointer_t<rpmtd>> data = Common::Rpm::ownHandle<rpmtdFree>(rpmtdNew());
  data->tag = static_cast<rpm_tag_t>(tag);
  data->type = RPM_STRING_ARRAY_TYPE;
  data->count = static_cast<rpm_count_t>(pointers.size());
  data->data = pointers.data();
  if (headerPut(package.header().get(), data.get(), HEADERPUT_DEFAULT) == 0)
    throw additionError();
}

void markInstalled(Reader& package, std::int64_t time) {
  Header header = package.header().get();
  const auto seconds = static_cast<std::uint32_t>(time);
  const std::vector<char> states(package.texts(RPMTAG_BASENAMES).size(), RPMFILE_STATE_NORMAL);
  if (headerPutUint32(header, RPMTAG_INSTALLTIME, &seconds, 1) == 0 ||
      (!states.empty() &&
       headerPutChar(header, RPMTAG_FILESTATES, states.data(), static_cast<rpm_count_t>(states.size())) == 0))
    throw additionError();
}

} // namespace Sandbox
