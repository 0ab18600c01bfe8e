// A plug-in in C++ that lets exceptions escape, as none may.
#include <stdexcept>

#include "kvalo/plugin.h"

uint8_t IsCompatible(const char*) { throw std::runtime_error("compatible?"); }
uint32_t GetConfigCount() { return 0; }
const char* GetConfigKey(uint32_t) { return nullptr; }
uint8_t Initialize(const char* path, const char* const*) {
  if (path[0] != '\0') throw std::runtime_error("out of here");
  return 0;
}
uint32_t GetParameterCount(const char*) { return 0; }
const char* GetParameterName(const char*, uint32_t) { return nullptr; }
uint8_t Load(const char*, uint32_t, uint64_t*, double**, double**) { throw 7; }
uint8_t Terminate(const char*) { throw 7; }
const char* GetErrorMessage() { return nullptr; }
const char* GetInfoMessage() { return nullptr; }
