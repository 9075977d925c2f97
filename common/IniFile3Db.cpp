// Configuration layer: the decibel functions of IniFile3. In their own file, so that only programs that use
// them need libm.
#include <math.h>
#include <stdlib.h>

#include "common/IniFile3.h"

double IniFile3::Float2Db(double x) {
  constexpr double kSilence = -100;
  return x == 0 ? kSilence : 20 * log10(x);
}

double IniFile3::Db2Float(double d) {
  return pow(10, d / 20);
}

float IniFile3::GetDb(const char* section, const char* key, float def) const {
  const ValNode* node = FindNode(section, key);
  if (node == nullptr) return def;
  const char* value = node->m_value.Str();
  return static_cast<float>(Db2Float(value != nullptr ? strtod(value, nullptr) : 0));
}

void IniFile3::SetDb(const char* section, const char* key, float factor) {
  SetDouble(section, key, Float2Db(static_cast<double>(factor)));
}
