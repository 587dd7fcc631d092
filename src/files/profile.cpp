// The settings file scanner. The file is read whole into 16-bit text with every line end turned
// into one CR, then walked by a table-driven scanner of seven character classes and sixteen states
// that finds a section, a key and its value. Writing rewrites the whole file through a temporary
// file beside it; a settings file holds a few dozen keys, so this costs nothing worth saving.
#include "files/profile.h"

#include <cstdio>
#include <string>

#include "base/text.h"

namespace {

// Character classes of the scanner.
enum : int { kBlank, kSemicolon, kLineEnd, kOpen, kClose, kEquals, kOther };

int CharClass(char16_t c) {
  switch (c) {
    case u' ':
    case u'\t':
      return kBlank;
    case u';':
      return kSemicolon;
    case u'\r':
      return kLineEnd;
    case u'[':
      return kOpen;
    case u']':
      return kClose;
    case u'=':
      return kEquals;
    default:
      return kOther;
  }
}

// States: 0 start of file, 1 blanks at a line's start, 2 comment, 3 skipping a line, 4 new line,
// 5 "[" seen, 6 in a section name, 7 "]" seen, 8 blanks after the name, 9 comment in a section,
// 10 skipping in a section, 11 new line in a section, 12 blanks at a line's start in a section,
// 13 in a key, 14 "=" seen, 15 in a value.
constexpr uint8_t kNext[16][7] = {
    {1, 2, 4, 5, 3, 3, 3},        {1, 2, 4, 5, 3, 3, 3},        {3, 3, 4, 3, 3, 3, 3},
    {3, 3, 4, 3, 3, 3, 3},        {1, 2, 4, 5, 3, 3, 3},        {6, 6, 6, 6, 7, 6, 6},
    {6, 6, 6, 6, 7, 6, 6},        {8, 9, 11, 10, 10, 10, 10},   {8, 9, 11, 10, 10, 10, 10},
    {10, 10, 11, 10, 10, 10, 10}, {10, 10, 11, 10, 10, 10, 10}, {12, 9, 11, 5, 13, 13, 13},
    {12, 9, 11, 5, 13, 13, 13},   {13, 13, 13, 13, 13, 14, 13}, {15, 9, 11, 15, 15, 15, 15},
    {15, 9, 11, 15, 15, 15, 15},
};

enum ScanResult : int { kNoFile = 0, kNoSection = 1, kNoKey = 2, kFoundKey = 3 };

struct ProfileScan {
  int result;
  uint32_t sectionStart;  // the "[" of the section found
  uint32_t sectionEnd;    // where a new key of the section goes
  uint32_t valueStart;    // the value of the key found, [valueStart, valueEnd)
  uint32_t valueEnd;
  std::u16string keys;  // with a null key: every key of the section, each ended by a zero
};

bool SameNoCase(const std::u16string& a, const char16_t* b) {
  return EqualTextNoCase(a.c_str(), b);
}

ProfileScan Scan(const std::u16string& text, const char16_t* section, const char16_t* key) {
  ProfileScan scan{kNoSection, 0, 0, 0, 0, {}};
  uint32_t bracket = 0;
  std::u16string name;
  bool entered = false;
  bool found = false;
  int state = 0;
  const uint32_t n = static_cast<uint32_t>(text.size());
  for (uint32_t i = 0; i < n; i++) {
    const char16_t c = text[i];
    const int next = kNext[state][CharClass(c)];
    if (found && next != 14 && next != 15) {
      scan.result = kFoundKey;
      scan.valueEnd = i;
      return scan;
    }
    state = next;
    switch (state) {
      case 5:
        if (entered) {
          scan.result = kNoKey;
          scan.sectionEnd = i;
          return scan;
        }
        bracket = i;
        name.clear();
        break;
      case 6:
        name += c;
        break;
      case 7:
        entered = SameNoCase(name, section);
        if (entered) scan.sectionStart = bracket;
        name.clear();
        break;
      case 13:
        if (entered) name += c;
        break;
      case 14:
        if (!entered) break;
        if (key) {
          if (SameNoCase(name, key)) {
            found = true;
            scan.valueStart = i + 1;
          }
        } else {
          scan.keys += name;
          scan.keys += u'\0';
        }
        name.clear();
        break;
      default:
        break;
    }
  }
  if (found) {
    scan.result = kFoundKey;
    scan.valueEnd = n;
  } else if (entered) {
    scan.result = kNoKey;
    scan.sectionEnd = n;
  }
  return scan;
}

// The file as 16-bit text with CR LF and lone LF read as one CR; false when it does not open.
bool ReadProfileText(const char16_t* path, std::u16string* text) {
  FILE* f = std::fopen(TextToUtf8(path).c_str(), "rb");
  if (!f) return false;
  std::string bytes;
  char chunk[4096];
  size_t got;
  while ((got = std::fread(chunk, 1, sizeof chunk, f)) > 0) bytes.append(chunk, got);
  std::fclose(f);
  std::u16string wide = Utf8ToU16(bytes);
  text->clear();
  for (size_t i = 0; i < wide.size(); i++) {
    if (wide[i] == u'\n') {
      text->push_back(u'\r');
    } else {
      text->push_back(wide[i]);
      if (wide[i] == u'\r' && i + 1 < wide.size() && wide[i + 1] == u'\n') i++;
    }
  }
  return true;
}

// Writes `text` with every CR as CR LF into "<path without extension>.tmp", then renames that over
// `path`.
int WriteProfileText(const char16_t* path, const std::u16string& text) {
  std::u16string lines;
  for (char16_t c : text) {
    lines += c;
    if (c == u'\r') lines += u'\n';
  }
  const std::string target = TextToUtf8(path);
  std::string temporary = target;
  const size_t dot = temporary.rfind('.');
  const size_t slash = temporary.rfind('/');
  if (dot != std::string::npos && (slash == std::string::npos || dot > slash)) {
    temporary.resize(dot);
  }
  temporary += ".tmp";
  FILE* f = std::fopen(temporary.c_str(), "wb");
  if (!f) return 0;
  const std::string bytes = TextToUtf8(lines.c_str());
  const bool written = std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
  if (std::fclose(f) != 0 || !written || std::rename(temporary.c_str(), target.c_str()) != 0) {
    std::remove(temporary.c_str());
    return 0;
  }
  return 1;
}

uint32_t CopyOut(const char16_t* from, uint32_t length, char16_t* out, uint32_t size) {
  if (!out || size == 0) return 0;
  if (length > size - 1) length = size - 1;
  for (uint32_t i = 0; i < length; i++) out[i] = from[i];
  out[length] = 0;
  return length;
}

}  // namespace

int32_t ReadProfileValue(const char16_t* section, const char16_t* key, char16_t* out, uint32_t size,
                         const char16_t* path) {
  std::u16string text;
  if (!ReadProfileText(path, &text)) return -1;
  const ProfileScan scan = Scan(text, section, key);
  if (!key) {
    if (scan.result == kNoSection) return -1;
    return static_cast<int32_t>(
        CopyOut(scan.keys.data(), static_cast<uint32_t>(scan.keys.size()), out, size));
  }
  if (scan.result != kFoundKey) return -1;
  return static_cast<int32_t>(
      CopyOut(text.data() + scan.valueStart, scan.valueEnd - scan.valueStart, out, size));
}

uint32_t ReadProfileString(const char16_t* section, const char16_t* key, const char16_t* fallback,
                           char16_t* out, uint32_t size, const char16_t* path) {
  const int32_t length = ReadProfileValue(section, key, out, size, path);
  return length >= 0 ? static_cast<uint32_t>(length)
                     : CopyOut(fallback, TextLength(fallback), out, size);
}

int WriteProfileString(const char16_t* section, const char16_t* key, const char16_t* value,
                       const char16_t* path) {
  std::u16string text;
  if (!ReadProfileText(path, &text)) return 0;
  const ProfileScan scan = Scan(text, section, key);
  // Built piece by piece: GCC 12 warns wrongly about chains of + on temporaries.
  std::u16string line = key;
  line += u'=';
  line += value;
  line += u'\r';
  switch (scan.result) {
    case kNoSection:
      if (!text.empty() && text.back() != u'\r') text += u'\r';
      text += u'[';
      text += section;
      text += u"]\r";
      text += line;
      break;
    case kNoKey: {
      if (scan.sectionEnd > 0 && text[scan.sectionEnd - 1] != u'\r') line.insert(0, 1, u'\r');
      text.insert(scan.sectionEnd, line);
      break;
    }
    default:
      text.replace(scan.valueStart, scan.valueEnd - scan.valueStart, value);
      break;
  }
  return WriteProfileText(path, text);
}

int RemoveProfileSection(const char16_t* section, const char16_t* path) {
  std::u16string text;
  if (!ReadProfileText(path, &text)) return 0;
  const ProfileScan scan = Scan(text, section, u"");
  if (scan.result == kNoSection) return 1;
  text.erase(scan.sectionStart, scan.sectionEnd - scan.sectionStart);
  return WriteProfileText(path, text);
}
