#include "tests/unit/ArgsModel.h"

// Input: texts separated by NULs. One parser parses them all, as on the worker thread.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  constexpr unsigned kMaxArgs = 6;
  Velk::ArgsParser parser(kMaxArgs);
  const std::string all(data, data + size);
  for (size_t at = 0; at <= all.size(); at = std::min(all.find('\0', at), all.size()) + 1)
    CheckArgs(parser, kMaxArgs, all.substr(at).c_str());
  return 0;
}
