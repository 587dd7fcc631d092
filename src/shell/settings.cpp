// Band layout, status bar options and recent files, kept in the platform's settings store. Numbers
// are written as decimal text; a missing, empty or negative number reads as its default.
#include "shell/settings.h"

#include <cstdio>
#include <string>

#include "base/alloc.h"
#include "base/text.h"
#include "platform/platform.h"

RecentFiles Recent;

namespace {

constexpr char16_t kOptions[] = u"Options";
constexpr char16_t kRecentSection[] = u"Recent files";

// The band keys: a prefix per band, then "Index", "Style" or "Cx".
constexpr const char16_t* kBandPrefix[4] = {u"Mnu", u"Std", u"Fml", u"Fmt"};
constexpr int32_t kDefaultStyle[4] = {256, 129, 133, 137};

int32_t ReadNumber(const std::u16string& key, int32_t fallback) {
  char16_t text[32];
  if (gPlatform->settingsRead(kOptions, key.c_str(), text, 32) <= 0) return fallback;
  int64_t value = 0;
  uint32_t i = 0;
  while (text[i] == u' ') i++;
  const uint32_t first = i;
  for (; text[i] >= u'0' && text[i] <= u'9'; i++) {
    value = value * 10 + (text[i] - u'0');
    if (value > INT32_MAX) return fallback;
  }
  return i == first ? fallback : static_cast<int32_t>(value);
}

void WriteNumber(const std::u16string& key, int32_t value) {
  char text[16];
  std::snprintf(text, sizeof text, "%d", value);
  gPlatform->settingsWrite(kOptions, key.c_str(), Utf8ToU16(text).c_str());
}

std::u16string RecentKey(uint32_t slot) {
  return u"File" + std::u16string(1, static_cast<char16_t>(u'1' + slot));
}

}  // namespace

void ReadBarLayout(BarLayout* layout, int32_t clientWidth) {
  for (int band = 0; band < 4; band++) {
    const std::u16string prefix = kBandPrefix[band];
    BandLayout& b = layout->bands[band];
    b.index = ReadNumber(prefix + u"Index", band);
    b.style = ReadNumber(prefix + u"Style", kDefaultStyle[band]);
    b.cx = ReadNumber(prefix + u"Cx", clientWidth);
  }
  layout->statusBarVisible = ReadNumber(u"StsBarShow", 1);
  layout->statusFunction = ReadNumber(u"StsBarFunc", 6);
}

void WriteBarLayout(const BarLayout* layout) {
  for (int band = 0; band < 4; band++) {
    const std::u16string prefix = kBandPrefix[band];
    const BandLayout& b = layout->bands[band];
    WriteNumber(prefix + u"Index", b.index);
    WriteNumber(prefix + u"Style", b.style);
    WriteNumber(prefix + u"Cx", b.cx);
  }
  WriteNumber(u"StsBarShow", layout->statusBarVisible);
  WriteNumber(u"StsBarFunc", layout->statusFunction);
  gPlatform->settingsFlush();
}

void ReadRecentFiles() {
  FreeRecentFiles();
  uint32_t used = 0;
  char16_t name[1024];
  for (uint32_t slot = 0; slot < RecentFileCount; slot++) {
    if (gPlatform->settingsRead(kRecentSection, RecentKey(slot).c_str(), name, 1024) <= 0) {
      continue;
    }
    char16_t* copy = TextDuplicate(name);
    if (!copy) return;
    Recent.names[used++] = copy;
  }
}

void WriteRecentFiles() {
  for (uint32_t slot = 0; slot < RecentFileCount; slot++) {
    const char16_t* name = Recent.names[slot];
    gPlatform->settingsWrite(kRecentSection, RecentKey(slot).c_str(), name ? name : u"");
  }
  gPlatform->settingsFlush();
}

void FreeRecentFiles() {
  for (char16_t*& name : Recent.names) {
    Release(name);
    name = nullptr;
  }
}

void NoteRecentFile(const char16_t* name) {
  uint32_t found = 0;
  while (found < RecentFileCount && Recent.names[found] &&
         !EqualTextNoCase(Recent.names[found], name)) {
    found++;
  }
  char16_t* front;
  if (found < RecentFileCount && Recent.names[found]) {
    front = Recent.names[found];
  } else {
    front = TextDuplicate(name);
    if (!front) return;
    if (found == RecentFileCount) Release(Recent.names[--found]);
  }
  for (uint32_t i = found; i > 0; i--) Recent.names[i] = Recent.names[i - 1];
  Recent.names[0] = front;
}

void RemoveRecentFile(uint32_t slot) {
  if (slot >= RecentFileCount || !Recent.names[slot]) return;
  Release(Recent.names[slot]);
  for (uint32_t i = slot; i + 1 < RecentFileCount; i++) Recent.names[i] = Recent.names[i + 1];
  Recent.names[RecentFileCount - 1] = nullptr;
}
