// Fuzzes the compound file reader: arbitrary bytes are opened as a container, and the workbook
// stream and every other stream among the root's children are read. A damaged container must be
// refused with a message; reading out of bounds, leaking or running on is a failure.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "base/message.h"
#include "files/compound.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  ClearLastMessage();
  CompoundFile compound;
  if (!OpenCompoundBytes(&compound, data, size)) {
    if (!LastMessage()) std::abort();
    return 0;
  }
  CompoundStream stream;
  if (ReadWorkbookStream(&compound, &stream)) ReleaseCompoundStream(&stream);
  for (uint32_t i = 0; i < compound.childCount; i++) {
    ClearLastMessage();
    if (ReadCompoundStream(&compound, static_cast<int32_t>(compound.children[i]), &stream)) {
      if (stream.size != CompoundStreamSize(&compound, static_cast<int32_t>(compound.children[i])))
        std::abort();
      ReleaseCompoundStream(&stream);
    } else if (!LastMessage()) {
      std::abort();
    }
  }
  CloseCompound(&compound);
  return 0;
}
