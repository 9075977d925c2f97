#include "app/AckedCalls.h"

#include "app/RemoteMessages.h"
#include "tests/unit/Peers.h"

namespace {

struct PostCounter final : Velk::IGenericDispatchQueue {
  using Target = Velk::IGenericDispatchTarget;
  void PostTimer(unsigned, unsigned long, Target*, const char*, const char*) override {}
  void CancelTimer(unsigned, Target*) override {}
  void CancelAllMessages(Target*) override {}
  void Post(Target*, const char*, const char*) override { ++m_count; }
  unsigned m_count = 0;
};

}  // namespace

TEST(AckedCalls, ParseErrorsWakeTheWorkerOnlyIfCallsArePending) {
  PostCounter queue;
  RemoteMessages messages;
  UnpluggedServer server;
  AckedCalls acked(messages, server);
  acked.AttachQueue(&queue);
  acked.Call("WithAck", "c 1 `open");
  acked.OnParseError(&acked, "WithAck 127.0.0.1:1", "c 1 `open");
  EXPECT_EQ(1u, queue.m_count);
  acked.Call("WithAck", "c 2");
  acked.OnParseError(nullptr, "LogMsg", "`open");
  EXPECT_EQ(3u, queue.m_count);
}
