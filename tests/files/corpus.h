// Where the tests find the workbook corpus, and whether a missing corpus or tool is a failure:
// the folder comes from TESSAREL_CORPUS or lies beside the checkout, and under CI (CI=true) what
// is missing fails the test instead of skipping it.
#pragma once
#include <cstdlib>
#include <string>

inline bool UnderCi() {
  const char* ci = std::getenv("CI");
  return ci && std::string(ci) == "true";
}

inline std::string CorpusFolder() {
  const char* env = std::getenv("TESSAREL_CORPUS");
  return env ? env : std::string(TESSAREL_SOURCE_DIR) + "/../shared/corpus";
}
