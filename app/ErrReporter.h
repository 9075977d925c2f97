// Application layer: logs failures of the dispatch queue.
#pragma once

#include "common/IGenericDispatchQueue.h"

class AckedCalls;

// Called on the worker thread. Must outlive the queue that points to it.
class ErrReporter final : public Velk::IGenericDispatchQueue::IErrorReport {
 public:
  void OnParseError(Velk::IGenericDispatchTarget* target, const char* name, const char* args) override;
  void OnDispatchError(Velk::IGenericDispatchTarget* target, const char* name, const char* args) override;
  void OnPostError(Velk::IGenericDispatchTarget* target, const char* name, const char* args) override;

  // Gets parse errors too. Set it before the worker thread runs. Not owned; may be null.
  AckedCalls* m_ackedCalls = nullptr;
};
