// Dispatch layer: where calls wait for their thread.
#pragma once

namespace Velk {

class IGenericDispatchTarget;

// A call is a target, a name and an argument text (see ArgsParser for its form). The queue copies both texts;
// null counts as empty. It does not own targets: one must cancel its messages before it goes away. Any thread
// may call any operation, also from inside IGenericDispatchTarget::Dispatch().
class IGenericDispatchQueue {
 public:
  class IErrorReport;

  // Queues a call for delivery in periodMs milliseconds, and every periodMs milliseconds after each delivery
  // until it is cancelled. periodMs 0: once, now, but after all plain posts. Several timers may share an id.
  virtual void PostTimer(unsigned int timerId, unsigned long periodMs, IGenericDispatchTarget* target,
                         const char* name, const char* args) = 0;
  // Drops the earliest pending message with this id and target, if there is one. A call that is being
  // dispatched still ends, but is not repeated. Plain posts have the id 0.
  virtual void CancelTimer(unsigned int timerId, IGenericDispatchTarget* target) = 0;
  // Drops all pending messages of the target.
  virtual void CancelAllMessages(IGenericDispatchTarget* target) = 0;
  // Queues a call for delivery as soon as possible, after all earlier posts.
  virtual void Post(IGenericDispatchTarget* target, const char* name, const char* args) = 0;

 protected:
  ~IGenericDispatchQueue() = default;
};

// Is told what became of calls that failed. Called on the queue's thread with no lock held; the texts are
// valid until it returns.
class IGenericDispatchQueue::IErrorReport {
 public:
  // The argument text cannot be parsed; the target was not called.
  virtual void OnParseError(IGenericDispatchTarget* target, const char* name, const char* args) = 0;
  // The target's Dispatch() returned false.
  virtual void OnDispatchError(IGenericDispatchTarget* target, const char* name, const char* args) = 0;
  // For queues that can refuse a message; GDQ never calls it.
  virtual void OnPostError(IGenericDispatchTarget* target, const char* name, const char* args) = 0;

 protected:
  ~IErrorReport() = default;
};

}  // namespace Velk
