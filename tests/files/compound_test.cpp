// Tests of the compound file reader and writer: containers built here byte by byte (mini streams,
// 4096-byte sectors, directories of several sectors, and damaged copies of them), files from the
// writer read back by the reader and by olefile, an independent reader, and the workbook corpus.
#include <gtest/gtest.h>
#include <zlib.h>

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "base/bytes.h"
#include "base/message.h"
#include "base/text.h"
#include "files/compound.h"
#include "files/corpus.h"
#include "files/safe_save.h"

namespace {

constexpr uint32_t Free = 0xFFFFFFFF;
constexpr uint32_t End = 0xFFFFFFFE;

std::vector<uint8_t> Pattern(size_t size, uint32_t seed) {
  std::vector<uint8_t> data(size);
  uint32_t x = seed * 2654435761u + 1;
  for (uint8_t& byte : data) {
    x = x * 1103515245u + 12345u;
    byte = static_cast<uint8_t>(x >> 16);
  }
  return data;
}

// A container laid out by hand: sector 0 the allocation table, then the directory, the mini
// allocation table, the mini stream and the regular streams, each in consecutive sectors. Streams
// under 4096 bytes go to the mini stream. The fields are public so that tests can damage them.
struct Image {
  std::vector<uint8_t> bytes;
  uint32_t shift = 9;
  uint32_t directoryStart = 0, miniTableStart = 0, miniStreamStart = 0;
  std::vector<uint32_t> streamStart;  // first sector (or mini sector) of each stream

  uint32_t SectorSize() const { return 1u << shift; }
  uint8_t* Sector(uint32_t n) { return bytes.data() + ((n + 1) << shift); }
  uint8_t* Entry(uint32_t index) {
    uint32_t perSector = SectorSize() / 128;
    return Sector(directoryStart + index / perSector) + 128 * (index % perSector);
  }
  void SetFat(uint32_t sector, uint32_t value) { WriteU32(Sector(0) + 4 * sector, value); }
  uint32_t Fat(uint32_t sector) { return ReadU32(Sector(0) + 4 * sector); }
  void SetMiniFat(uint32_t mini, uint32_t value) {
    WriteU32(Sector(miniTableStart) + 4 * mini, value);
  }
};

struct TestStream {
  std::u16string name;
  std::vector<uint8_t> data;
};

uint32_t SectorsFor(size_t bytes, uint32_t size) {
  return static_cast<uint32_t>((bytes + size - 1) / size);
}

Image Build(const std::vector<TestStream>& streams, uint32_t shift = 9) {
  Image image;
  image.shift = shift;
  uint32_t size = image.SectorSize();
  uint32_t perTable = size / 4;
  uint32_t entries = static_cast<uint32_t>(streams.size()) + 1;
  uint32_t directorySectors = SectorsFor(entries, size / 128);
  uint32_t miniCount = 0;
  for (const TestStream& s : streams)
    if (s.data.size() < 4096) miniCount += SectorsFor(s.data.size(), 64);
  uint32_t miniTableSectors = SectorsFor(miniCount, perTable);
  uint32_t miniStreamSectors = SectorsFor(static_cast<size_t>(miniCount) * 64, size);
  uint32_t sectors = 1 + directorySectors + miniTableSectors + miniStreamSectors;
  for (const TestStream& s : streams)
    if (s.data.size() >= 4096) sectors += SectorsFor(s.data.size(), size);
  EXPECT_LE(sectors, perTable);  // one allocation sector is enough for every test
  image.bytes.assign(static_cast<size_t>(sectors + 1) * size, 0);

  uint8_t* h = image.bytes.data();
  const uint8_t signature[8] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};
  std::copy(signature, signature + 8, h);
  WriteU16(h + 24, 0x3E);
  WriteU16(h + 26, shift == 9 ? 3 : 4);
  WriteU16(h + 28, 0xFFFE);
  WriteU16(h + 30, static_cast<uint16_t>(shift));
  WriteU16(h + 32, 6);
  WriteU32(h + 44, 1);
  WriteU32(h + 56, 4096);
  WriteU32(h + 68, End);
  for (uint32_t i = 0; i < 109; i++) WriteU32(h + 76 + 4 * i, i == 0 ? 0 : Free);
  for (uint32_t i = 0; i < perTable; i++) image.SetFat(i, Free);
  image.SetFat(0, 0xFFFFFFFD);

  // Lays `count` sectors from `first` in one chain.
  auto chain = [&](uint32_t first, uint32_t count) {
    for (uint32_t i = 0; i < count; i++)
      image.SetFat(first + i, i + 1 < count ? first + i + 1 : End);
  };
  image.directoryStart = 1;
  chain(1, directorySectors);
  WriteU32(h + 48, 1);
  image.miniTableStart = 1 + directorySectors;
  chain(image.miniTableStart, miniTableSectors);
  WriteU32(h + 60, miniTableSectors ? image.miniTableStart : End);
  WriteU32(h + 64, miniTableSectors);
  image.miniStreamStart = image.miniTableStart + miniTableSectors;
  chain(image.miniStreamStart, miniStreamSectors);
  for (uint32_t i = 0; i < miniTableSectors * perTable; i++) image.SetMiniFat(i, Free);

  uint32_t nextSector = image.miniStreamStart + miniStreamSectors;
  uint32_t nextMini = 0;
  for (const TestStream& s : streams) {
    if (s.data.size() < 4096) {
      uint32_t count = SectorsFor(s.data.size(), 64);
      image.streamStart.push_back(count ? nextMini : End);
      for (uint32_t i = 0; i < count; i++) {
        uint32_t mini = nextMini + i;
        image.SetMiniFat(mini, i + 1 < count ? mini + 1 : End);
        size_t offset = static_cast<size_t>(i) * 64;
        size_t take = std::min<size_t>(64, s.data.size() - offset);
        uint8_t* target = image.Sector(image.miniStreamStart + mini * 64 / size) + mini * 64 % size;
        std::copy(s.data.begin() + offset, s.data.begin() + offset + take, target);
      }
      nextMini += count;
    } else {
      uint32_t count = SectorsFor(s.data.size(), size);
      image.streamStart.push_back(nextSector);
      chain(nextSector, count);
      std::copy(s.data.begin(), s.data.end(), image.Sector(nextSector));
      nextSector += count;
    }
  }

  // Directory: the root, then the streams as one right-leaning list of siblings.
  auto entry = [&](uint32_t index, const std::u16string& name, uint8_t type, uint32_t right,
                   uint32_t child, uint32_t start, uint32_t bytes) {
    uint8_t* e = image.Entry(index);
    for (size_t i = 0; i < name.size(); i++) WriteU16(e + 2 * i, name[i]);
    WriteU16(e + 64, static_cast<uint16_t>(2 * (name.size() + 1)));
    e[66] = type;
    e[67] = 1;
    WriteU32(e + 68, Free);
    WriteU32(e + 72, right);
    WriteU32(e + 76, child);
    WriteU32(e + 116, start);
    WriteU32(e + 120, bytes);
  };
  for (uint32_t i = 0; i < directorySectors * size / 128; i++) {
    WriteU32(image.Entry(i) + 68, Free);
    WriteU32(image.Entry(i) + 72, Free);
    WriteU32(image.Entry(i) + 76, Free);
  }
  entry(0, u"Root Entry", 5, Free, streams.empty() ? Free : 1,
        miniStreamSectors ? image.miniStreamStart : End, miniCount * 64);
  for (uint32_t i = 0; i < streams.size(); i++)
    entry(i + 1, streams[i].name, 2, i + 1 < streams.size() ? i + 2 : Free, Free,
          image.streamStart[i], static_cast<uint32_t>(streams[i].data.size()));
  return image;
}

std::string Text(const char16_t* text) {
  return text ? TextToUtf8(text) : std::string("(none)");
}

// Opens `image` and reads `name`; returns the error code and, on success, the bytes.
uint32_t ReadFromImage(const Image& image, const char16_t* name, std::vector<uint8_t>* out) {
  ClearLastMessage();
  CompoundFile compound;
  if (!OpenCompoundBytes(&compound, image.bytes.data(), image.bytes.size())) {
    EXPECT_EQ(Text(LastMessage()), Text(CompoundErrorText(compound.error)));
    return compound.error;
  }
  EXPECT_EQ(LastMessage(), nullptr);
  int32_t entry = FindCompoundStream(&compound, name);
  // Whatever is handed out where it lies must be exactly what a copy reads, and a stream that
  // cannot be read is never handed out.
  uint32_t placedSize = 0;
  const uint8_t* placed =
      entry >= 0 ? CompoundStreamInPlace(&compound, entry, &placedSize) : nullptr;
  CompoundStream stream;
  uint32_t error = CompoundOk;
  if (entry < 0) {
    error = 0xFF;
  } else if (!ReadCompoundStream(&compound, entry, &stream)) {
    error = compound.error;
    EXPECT_EQ(Text(LastMessage()), Text(CompoundErrorText(error)));
    EXPECT_EQ(placed, nullptr);
  } else {
    out->assign(stream.data, stream.data + stream.size);
    if (placed) {
      EXPECT_TRUE(std::vector<uint8_t>(placed, placed + placedSize) == *out);
    }
    ReleaseCompoundStream(&stream);
  }
  CloseCompound(&compound);
  return error;
}

// Streams below, at and above the mini stream's limit; a chain of small streams long enough to
// need a second mini allocation sector, with the one looked for at its end; a directory of
// several sectors with the stream in its last entry; and 4096-byte sectors.
TEST(CompoundRead, FindsAndReadsStreams) {
  struct Case {
    const char* label;
    uint32_t shift;
    std::vector<size_t> sizes;  // the last stream is the one read
    const char16_t* lookFor;
  };
  const Case cases[] = {
      {"small", 9, {100}, u"workbook"},
      {"just under the cut-off", 9, {4095}, u"WORKBOOK"},
      {"at the cut-off", 9, {4096}, u"Workbook"},
      {"second mini table sector", 9, {4000, 4000, 4000}, u"Workbook"},
      {"mixed, entry in the second directory sector", 9, {5000, 30, 40000, 4095, 1}, u"Workbook"},
      {"empty", 9, {0}, u"Workbook"},
      {"4096-byte sectors", 12, {200, 10000}, u"Workbook"},
      {"4096-byte sectors, small", 12, {10000, 3000}, u"Workbook"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.label);
    std::vector<TestStream> streams;
    for (size_t i = 0; i < c.sizes.size(); i++) {
      std::u16string name = i + 1 == c.sizes.size()
                                ? u"Workbook"
                                : u"Other" + std::u16string(1, static_cast<char16_t>(u'A' + i));
      streams.push_back({name, Pattern(c.sizes[i], static_cast<uint32_t>(i))});
    }
    Image image = Build(streams, c.shift);
    std::vector<uint8_t> read;
    ASSERT_EQ(ReadFromImage(image, c.lookFor, &read), CompoundOk);
    EXPECT_TRUE(read == streams.back().data) << read.size() << " bytes read";
  }
}

TEST(CompoundRead, WorkbookBeforeBookAndNamesBeyondTheRoot) {
  struct Case {
    std::vector<std::u16string> names;
    int version;  // 0: not found
    size_t index;
  };
  const Case cases[] = {
      {{u"Book"}, 7, 0},
      {{u"Book", u"Workbook"}, 8, 1},
      {{u"Workbook", u"Book"}, 8, 0},
      {{u"Workbooks", u"Boo"}, 0, 0},
  };
  for (const Case& c : cases) {
    std::vector<TestStream> streams;
    for (size_t i = 0; i < c.names.size(); i++)
      streams.push_back({c.names[i], Pattern(50 + i, static_cast<uint32_t>(i))});
    Image image = Build(streams);
    CompoundFile compound;
    ASSERT_TRUE(OpenCompoundBytes(&compound, image.bytes.data(), image.bytes.size()));
    ClearLastMessage();
    CompoundStream stream;
    EXPECT_EQ(ReadWorkbookStream(&compound, &stream), c.version);
    if (c.version) {
      EXPECT_TRUE(std::vector<uint8_t>(stream.data, stream.data + stream.size) ==
                  streams[c.index].data);
    } else {
      EXPECT_EQ(Text(LastMessage()), "Workbook not found in file");
    }
    ReleaseCompoundStream(&stream);
    CloseCompound(&compound);
  }
  // A stream inside a storage is not one of the root's: hide "Workbook" under the second entry.
  Image image = Build({{u"Storage", Pattern(10, 1)}, {u"Workbook", Pattern(10, 2)}});
  image.Entry(1)[66] = 1;
  WriteU32(image.Entry(1) + 72, Free);
  WriteU32(image.Entry(1) + 76, 2);
  std::vector<uint8_t> read;
  EXPECT_EQ(ReadFromImage(image, u"Workbook", &read), 0xFFu);
}

// A stream in one run of sectors is read where it lies; a small one, or one whose sectors are
// out of order, is not, and is read as a copy.
TEST(CompoundRead, ReadsOneRunOfSectorsInPlace) {
  for (uint32_t shift : {9u, 12u}) {
    Image image = Build({{u"A", Pattern(100, 1)}, {u"Workbook", Pattern(20000, 2)}}, shift);
    Image shuffled = image;
    uint32_t first = image.streamStart[1];
    shuffled.SetFat(first, first + 2);
    shuffled.SetFat(first + 2, first + 1);
    shuffled.SetFat(first + 1, first + 3);
    for (const Image* m : {&image, &shuffled}) {
      CompoundFile compound;
      ASSERT_TRUE(OpenCompoundBytes(&compound, m->bytes.data(), m->bytes.size()));
      uint32_t size = 0;
      const uint8_t* placed =
          CompoundStreamInPlace(&compound, FindCompoundStream(&compound, u"Workbook"), &size);
      EXPECT_EQ(placed != nullptr, m == &image) << shift;
      if (placed) {
        EXPECT_EQ(size, 20000u);
      }
      EXPECT_EQ(CompoundStreamInPlace(&compound, FindCompoundStream(&compound, u"A"), &size),
                nullptr);
      CloseCompound(&compound);
      std::vector<uint8_t> read;
      EXPECT_EQ(ReadFromImage(*m, u"Workbook", &read), CompoundOk);
    }
  }
}

struct Damage {
  const char* label;
  void (*damage)(Image*);
  uint32_t error;
};

// Damages a fresh copy of `streams` in each way and reads "Workbook" from it.
void ExpectRefusals(const std::vector<TestStream>& streams, const std::vector<Damage>& cases) {
  for (const Damage& c : cases) {
    SCOPED_TRACE(c.label);
    Image image = Build(streams);
    c.damage(&image);
    std::vector<uint8_t> read;
    EXPECT_EQ(ReadFromImage(image, u"Workbook", &read), c.error);
  }
}

// Damaged containers: each is refused with the reason, at open time or when the stream is read.
TEST(CompoundRead, RefusesDamagedContainers) {
  const std::vector<Damage> cases = {
      {"shorter than a header", [](Image* m) { m->bytes.resize(300); }, CompoundNotCompound},
      {"no signature", [](Image* m) { m->bytes[0] = 'P'; }, CompoundNotCompound},
      {"sector shift 10", [](Image* m) { WriteU16(m->bytes.data() + 30, 10); }, CompoundBadHeader},
      {"no allocation sector", [](Image* m) { WriteU32(m->bytes.data() + 44, 0); },
       CompoundBadHeader},
      {"allocation sector past the end", [](Image* m) { WriteU32(m->bytes.data() + 76, 999); },
       CompoundBadSector},
      {"directory past the end", [](Image* m) { WriteU32(m->bytes.data() + 48, 70000); },
       CompoundBadSector},
      {"directory chain loops", [](Image* m) { m->SetFat(1, 1); }, CompoundLoop},
      {"root is not a root", [](Image* m) { m->Entry(0)[66] = 1; }, CompoundBadDirectory},
      {"child outside the directory", [](Image* m) { WriteU32(m->Entry(0) + 76, 40); },
       CompoundBadDirectory},
      {"siblings in a cycle", [](Image* m) { WriteU32(m->Entry(3) + 72, 1); },
       CompoundBadDirectory},
      {"debris hides what hangs below it", [](Image* m) { m->Entry(2)[66] = 7; }, 0xFF},
      {"stream chain loops",
       [](Image* m) { m->SetFat(m->streamStart[2] + 3, m->streamStart[2] + 1); }, CompoundLoop},
      {"stream chain ends early", [](Image* m) { m->SetFat(m->streamStart[2] + 3, End); },
       CompoundShortChain},
      {"stream chain points past the end", [](Image* m) { m->SetFat(m->streamStart[2], 5000); },
       CompoundBadSector},
      {"stream chain meets a free sector", [](Image* m) { m->SetFat(m->streamStart[2], Free); },
       CompoundBadSector},
      {"stream larger than the file", [](Image* m) { WriteU32(m->Entry(3) + 120, 1u << 30); },
       CompoundShortChain},
      {"file cut inside the stream", [](Image* m) { m->bytes.resize(m->bytes.size() - 4096); },
       CompoundShortChain},
      {"file cut behind the stream's end", [](Image* m) { m->bytes.resize(m->bytes.size() - 200); },
       CompoundOk},
      {"file cut before the stream's end", [](Image* m) { m->bytes.resize(m->bytes.size() - 300); },
       CompoundShortChain},
  };
  ExpectRefusals(
      {{u"A", Pattern(100, 1)}, {u"B", Pattern(200, 2)}, {u"Workbook", Pattern(9000, 3)}}, cases);
}

TEST(CompoundRead, RefusesDamagedMiniStreams) {
  const std::vector<Damage> cases = {
      {"mini chain loops",
       [](Image* m) { m->SetMiniFat(m->streamStart[1] + 2, m->streamStart[1]); }, CompoundLoop},
      {"mini chain ends early", [](Image* m) { m->SetMiniFat(m->streamStart[1], End); },
       CompoundShortChain},
      {"mini sector outside the table", [](Image* m) { m->SetMiniFat(m->streamStart[1], 4000); },
       CompoundBadSector},
      {"mini stream shorter than the root says",
       [](Image* m) { WriteU32(m->Entry(0) + 120, 64 * 500); }, CompoundShortChain},
      {"no mini table", [](Image* m) { WriteU32(m->bytes.data() + 60, End); }, CompoundBadSector},
      {"mini table loops", [](Image* m) { m->SetFat(m->miniTableStart, m->miniTableStart); },
       CompoundLoop},
  };
  ExpectRefusals({{u"A", Pattern(300, 1)}, {u"Workbook", Pattern(1000, 2)}}, cases);
}

struct WriteRequest {
  std::vector<std::u16string> names;
  std::vector<std::vector<uint8_t>> data;  // one per name; streams after these stay empty
};

int WriteStreams(FILE* file, void* context) {
  const WriteRequest* request = static_cast<const WriteRequest*>(context);
  std::vector<const char16_t*> names;
  for (const std::u16string& name : request->names) names.push_back(name.c_str());
  CompoundWriter* writer = new CompoundWriter;
  int ok = BeginCompoundFile(writer, file, names.data(), static_cast<uint32_t>(names.size()));
  for (size_t i = 0; ok && i < request->data.size(); i++) {
    ok = BeginCompoundStream(writer, static_cast<uint32_t>(i));
    const std::vector<uint8_t>& data = request->data[i];
    // Uneven pieces, so that writes straddle sector ends.
    for (size_t at = 0; at < data.size(); at += 1000)
      CompoundWrite(writer, data.data() + at,
                    static_cast<uint32_t>(std::min<size_t>(1000, data.size() - at)));
    EndCompoundStream(writer);
  }
  ok = EndCompoundFile(writer) && ok;
  delete writer;
  return ok;
}

std::vector<uint8_t> Padded(const std::vector<uint8_t>& data) {
  size_t size = std::max<size_t>(4096, (data.size() + 511) / 512 * 512);
  std::vector<uint8_t> padded(data);
  padded.resize(size, 0);
  return padded;
}

std::string Python() {
  static std::string found = [] {
    for (const char* candidate : {"/usr/bin/python3", "python3"}) {
      std::string command = std::string(candidate) + " -c 'import olefile' 2>/dev/null";
      if (std::system(command.c_str()) == 0) return std::string(candidate);
    }
    return std::string();
  }();
  return found;
}

std::string Checker() {
  return std::string(TESSAREL_SOURCE_DIR) + "/tests/files/olefile_check.py";
}

class CompoundWriteTest : public ::testing::Test {
 protected:
  void SetUp() override {
    folder = std::filesystem::temp_directory_path() /
             ("tessarel-compound-" + std::to_string(::getpid()));
    std::filesystem::create_directories(folder);
  }
  void TearDown() override { std::filesystem::remove_all(folder); }

  // Has olefile read stream `name` of the container at `path`, which must hold `expected`.
  // Without olefile only CI fails.
  void ExpectOlefileReads(const std::string& path, const char* name,
                          const std::vector<uint8_t>& expected) {
    std::string python = Python();
    if (python.empty()) {
      if (UnderCi()) ADD_FAILURE() << "python3-olefile is missing";
      return;
    }
    std::string expectedPath = (folder / "expected.bin").string();
    std::ofstream(expectedPath, std::ios::binary)
        .write(reinterpret_cast<const char*>(expected.data()),
               static_cast<std::streamsize>(expected.size()));
    std::string command =
        python + " " + Checker() + " stream " + path + " " + name + " " + expectedPath;
    EXPECT_EQ(std::system(command.c_str()), 0) << command;
  }

  std::filesystem::path folder;
};

// Streams of several sizes, written and read back by our reader and by olefile; the stream read
// is the data followed by the writer's zero padding. 20 MB needs extra index sectors.
TEST_F(CompoundWriteTest, StreamsReadBackHere_AndInOlefile) {
  const size_t sizes[] = {100, 4096, 1 << 20, 20 << 20};
  for (size_t size : sizes) {
    SCOPED_TRACE(size);
    WriteRequest request{
        {u"Workbook", u"\x05SummaryInformation", u"\x05DocumentSummaryInformation"},
        {Pattern(size, static_cast<uint32_t>(size))}};
    std::string path = (folder / "out.xls").string();
    std::u16string path16 = Utf8ToU16(path);
    ASSERT_TRUE(SaveFileSafely(path16.c_str(), WriteStreams, &request));
    std::vector<uint8_t> expected = Padded(request.data[0]);

    CompoundFile compound;
    ASSERT_TRUE(OpenCompoundFile(&compound, path16.c_str()));
    CompoundStream stream;
    ASSERT_EQ(ReadWorkbookStream(&compound, &stream), 8);
    EXPECT_EQ(stream.size, expected.size());
    EXPECT_TRUE(
        std::equal(expected.begin(), expected.end(), stream.data, stream.data + stream.size));
    ReleaseCompoundStream(&stream);
    int32_t summary = FindCompoundStream(&compound, u"\x05summaryinformation");
    ASSERT_GE(summary, 0);
    EXPECT_EQ(CompoundStreamSize(&compound, summary), 0u);
    CloseCompound(&compound);

    ExpectOlefileReads(path, "Workbook", expected);
  }
  if (Python().empty()) GTEST_SKIP() << "python3-olefile not installed: olefile not compared";
}

// A directory of two sectors with a balanced tree, streams written in any order, and a patch of
// four bytes both in a sector already written and in the one still buffered.
TEST_F(CompoundWriteTest, SeveralStreamsAndPatches) {
  std::vector<std::u16string> names = {u"Workbook", u"Zeta", u"alpha", u"Mu", u"Beta2", u"Q"};
  std::vector<const char16_t*> pointers;
  for (const std::u16string& name : names) pointers.push_back(name.c_str());
  std::string path = (folder / "many.xls").string();
  FILE* file = std::fopen(path.c_str(), "wb");
  ASSERT_NE(file, nullptr);
  CompoundWriter* writer = new CompoundWriter;
  ASSERT_TRUE(
      BeginCompoundFile(writer, file, pointers.data(), static_cast<uint32_t>(names.size())));
  std::vector<std::vector<uint8_t>> expected(names.size());
  for (uint32_t index : {3u, 0u, 5u}) {
    ASSERT_TRUE(BeginCompoundStream(writer, index));
    std::vector<uint8_t> data = Pattern(700 + 3000 * index, index);
    CompoundWrite(writer, data.data(), static_cast<uint32_t>(data.size()));
    EXPECT_EQ(CompoundStreamPosition(writer), data.size());
    CompoundPatchU32(writer, 10, 0xA1B2C3D4);
    CompoundPatchU32(writer, static_cast<uint32_t>(data.size()) - 4, 0x01020304);
    WriteU32(data.data() + 10, 0xA1B2C3D4);
    WriteU32(data.data() + data.size() - 4, 0x01020304);
    EndCompoundStream(writer);
    expected[index] = Padded(data);
  }
  EXPECT_FALSE(BeginCompoundStream(writer, 3));  // each stream is written once
  ASSERT_TRUE(EndCompoundFile(writer));
  delete writer;
  std::fclose(file);

  std::u16string path16 = Utf8ToU16(path);
  CompoundFile compound;
  ASSERT_TRUE(OpenCompoundFile(&compound, path16.c_str()));
  for (size_t i = 0; i < names.size(); i++) {
    SCOPED_TRACE(TextToUtf8(names[i].c_str()));
    int32_t entry = FindCompoundStream(&compound, names[i].c_str());
    ASSERT_GE(entry, 0);
    CompoundStream stream;
    ASSERT_TRUE(ReadCompoundStream(&compound, entry, &stream));
    EXPECT_TRUE(std::vector<uint8_t>(stream.data, stream.data + stream.size) == expected[i]);
    ReleaseCompoundStream(&stream);
  }
  CloseCompound(&compound);
  ExpectOlefileReads(path, "Q", expected[5]);
}

TEST(CompoundWriteArguments, RefusesBadNames) {
  const std::vector<std::vector<const char16_t*>> refused = {
      {u""}, {u"a/b"}, {u"Workbook", u"WORKBOOK"}, {u"abcdefghijklmnopqrstuvwxyz012345"}};
  for (const auto& names : refused) {
    CompoundWriter* writer = new CompoundWriter;
    EXPECT_FALSE(
        BeginCompoundFile(writer, stdout, names.data(), static_cast<uint32_t>(names.size())));
    delete writer;
  }
}

// A save whose writer fails leaves the old file as it was and no temporary file behind.
TEST_F(CompoundWriteTest, FailedSaveKeepsTheOldFile) {
  std::string path = (folder / "keep.csv").string();
  std::ofstream(path) << "old";
  std::u16string path16 = Utf8ToU16(path);
  auto failing = [](FILE* file, void*) {
    std::fputs("new", file);
    return 0;
  };
  EXPECT_FALSE(SaveFileSafely(path16.c_str(), failing, nullptr));
  std::ifstream in(path);
  std::string content((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  EXPECT_EQ(content, "old");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder), {}), 1);
  std::u16string missing = Utf8ToU16((folder / "no/such/dir/x.xls").string());
  ClearLastMessage();
  EXPECT_FALSE(SaveFileSafely(missing.c_str(), failing, nullptr));
  EXPECT_EQ(Text(LastMessage()).rfind("Unable to open output file\n", 0), 0u);
}

// Every file of the corpus: a compound file gives the same workbook stream as olefile reads
// (where olefile reads one), or is refused with a message; anything else is refused as not being
// a compound file.
TEST(CompoundCorpus, EveryFileReadsOrIsRefused) {
  std::string folder = CorpusFolder();
  if (!std::filesystem::is_directory(folder)) {
    if (UnderCi()) FAIL() << "corpus missing at " << folder;
    GTEST_SKIP() << "corpus not found at " << folder;
  }
  std::map<std::string, std::string> olefile;
  std::string python = Python();
  if (!python.empty()) {
    std::string command = python + " " + Checker() + " corpus " + folder;
    FILE* pipe = popen(command.c_str(), "r");
    ASSERT_NE(pipe, nullptr);
    char line[4096];
    while (std::fgets(line, sizeof line, pipe)) {
      std::string text(line);
      if (!text.empty() && text.back() == '\n') text.pop_back();
      size_t tab = text.find('\t');
      if (tab != std::string::npos) olefile[text.substr(0, tab)] = text.substr(tab + 1);
    }
    pclose(pipe);
  } else if (UnderCi()) {
    FAIL() << "python3-olefile is missing";
  }
  // What we refuse, olefile must find damaged too.
  auto expectOlefileRefuses = [&](const std::string& relative) {
    auto known = olefile.find(relative);
    if (known != olefile.end()) {
      EXPECT_EQ(known->second, "-") << "olefile reads the workbook";
    }
  };
  int compound = 0, read = 0, refused = 0, agreed = 0;
  for (const auto& item : std::filesystem::recursive_directory_iterator(folder)) {
    if (!item.is_regular_file()) continue;
    std::string relative = std::filesystem::relative(item.path(), folder).string();
    SCOPED_TRACE(relative);
    std::u16string path = Utf8ToU16(item.path().string());
    ClearLastMessage();
    CompoundFile file;
    if (!OpenCompoundFile(&file, path.c_str())) {
      EXPECT_NE(LastMessage(), nullptr);
      if (file.error == CompoundNotCompound) {
        EXPECT_EQ(olefile.count(relative), 0u) << "olefile reads it";
      } else {
        compound++;
        refused++;
        expectOlefileRefuses(relative);
      }
      continue;
    }
    compound++;
    CompoundStream stream;
    int version = ReadWorkbookStream(&file, &stream);
    if (version) {
      read++;
      char described[128];
      std::snprintf(described, sizeof described, "%s\t%u\t%08lx",
                    version == 8 ? "Workbook" : "Book", stream.size,
                    crc32(0, stream.data, stream.size));
      auto known = olefile.find(relative);
      if (known != olefile.end() && known->second != "-") {
        EXPECT_EQ(described, known->second);
        agreed++;
      }
    } else {
      refused++;
      EXPECT_NE(LastMessage(), nullptr);
      expectOlefileRefuses(relative);
    }
    ReleaseCompoundStream(&stream);
    CloseCompound(&file);
  }
  std::printf(
      "corpus: %d compound files, %d workbook streams read, %d refused, %d compared with "
      "olefile\n",
      compound, read, refused, agreed);
  EXPECT_GT(read, 0);
}

}  // namespace
