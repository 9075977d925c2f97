// Dispatch layer: interface of a queue of calls with a worker thread.
#pragma once

namespace Velk {

class IGenericDispatchTarget;

// A call is a target, a name and an argument text, see ArgsParser. The queue copies both texts; null counts
// as empty. It does not own targets: a target must cancel its calls before it is destroyed. Any thread may
// call any operation, even from IGenericDispatchTarget::Dispatch().
class IGenericDispatchQueue {
 public:
  class IErrorReport;

  // Queues a call for delivery in periodMs milliseconds, and again periodMs milliseconds after each delivery
  // until cancelled. periodMs 0: delivers once, when no call from Post() is pending. Several timers may
  // share an id.
  virtual void PostTimer(unsigned int timerId, unsigned long periodMs, IGenericDispatchTarget* target,
                         const char* name, const char* args) = 0;
  // Drops the pending call with this id and target that is due first, if any. A dispatch in progress goes on.
  // Calls from Post() have id 0.
  virtual void CancelTimer(unsigned int timerId, IGenericDispatchTarget* target) = 0;
  // Drops all pending calls of the target.
  virtual void CancelAllMessages(IGenericDispatchTarget* target) = 0;
  // Queues a call for delivery as soon as possible, after all earlier posts.
  virtual void Post(IGenericDispatchTarget* target, const char* name, const char* args) = 0;

 protected:
  ~IGenericDispatchQueue() = default;
};

// Is told of failed calls, on the worker thread and with no lock held. The texts are valid only until it
// returns.
class IGenericDispatchQueue::IErrorReport {
 public:
  // The argument text cannot be parsed; the target was not called.
  virtual void OnParseError(IGenericDispatchTarget* target, const char* name, const char* args) = 0;
  // Dispatch() returned false, or the target is null.
  virtual void OnDispatchError(IGenericDispatchTarget* target, const char* name, const char* args) = 0;
  // The queue refused the call. GDQ never does.
  virtual void OnPostError(IGenericDispatchTarget* target, const char* name, const char* args) = 0;

 protected:
  ~IErrorReport() = default;
};

}  // namespace Velk
