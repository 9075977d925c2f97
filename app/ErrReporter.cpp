#include "app/ErrReporter.h"

#include <stdint.h>

#include "app/AckedCalls.h"
#include "common/LogPrinter.h"

namespace {

// The low 32 bits of the target's address, for %x: the format of these lines is fixed.
unsigned Address(const void* target) {
  return static_cast<unsigned>(reinterpret_cast<uintptr_t>(target));
}

}  // namespace

void ErrReporter::OnParseError(Velk::IGenericDispatchTarget* target, const char* name, const char* args) {
  LogPrinter::Instance()->Log(Error, nullptr, "OnParseError(%s,%s) -> 0x%x\n", name, args, Address(target));
  if (m_ackedCalls != nullptr) m_ackedCalls->OnParseError(target, name, args);
}

// Trace, although the text says ERROR: otherwise peers could fill the log with unknown or rejected calls.
void ErrReporter::OnDispatchError(Velk::IGenericDispatchTarget* target, const char* name, const char* args) {
  LogPrinter::Instance()->Log(Trace, nullptr, "ERROR: OnDispatchError(%s,%s) -> 0x%x\n", name, args,
                              Address(target));
}

void ErrReporter::OnPostError(Velk::IGenericDispatchTarget* target, const char* name, const char* args) {
  LogPrinter::Instance()->Log(Error, nullptr, "OnPostError(%s,%s) -> 0x%x\n", name, args, Address(target));
}
