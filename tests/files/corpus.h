// Where the tests find the workbook corpus, and whether a missing corpus or tool is a failure:
// the folder comes from TESSAREL_CORPUS or lies beside the checkout, and under CI (CI=true) what
// is missing fails the test instead of skipping it.
#pragma once
#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

inline bool UnderCi() {
  const char* ci = std::getenv("CI");
  return ci && std::string(ci) == "true";
}

inline std::string CorpusFolder() {
  const char* env = std::getenv("TESSAREL_CORPUS");
  return env ? env : std::string(TESSAREL_SOURCE_DIR) + "/../shared/corpus";
}

// The workbook files of the corpus: .xls, .xlt and the .biff5 saves, by extension.
inline bool IsWorkbookFile(const std::filesystem::path& path) {
  std::string ext = path.extension().string();
  for (char& c : ext) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return ext == ".xls" || ext == ".xlt" || ext == ".biff5";
}

inline std::vector<uint8_t> ReadFileBytes(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<uint8_t>((std::istreambuf_iterator<char>(in)),
                              std::istreambuf_iterator<char>());
}
