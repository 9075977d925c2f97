#include "app/AckedCalls.h"

#include "app/ErrReporter.h"
#include "app/RemoteMessages.h"
#include "common/GDQ.h"
#include "tests/unit/CapturedLog.h"
#include "tests/unit/Choices.h"
#include "tests/unit/Peers.h"

namespace {

// Keeps what is posted until the test delivers it.
struct StillQueue final : Velk::IGenericDispatchQueue {
  using Target = Velk::IGenericDispatchTarget;
  struct Message {
    Target* target;
    std::string name, args;
  };

  void PostTimer(unsigned, unsigned long, Target*, const char*, const char*) override {}
  void CancelTimer(unsigned, Target*) override {}
  void CancelAllMessages(Target*) override {}
  void Post(Target* target, const char* name, const char* args) override {
    m_messages.push_back({target, name, args});
  }

  std::deque<Message> m_messages;
};

enum Result { kDone, kRefused, kUnparsable };

struct Body {
  const char* text;
  Result result;
  const char* line;  // that it logs
};

const Body kPlain[] = {{"LogMsg 1 m plain", kDone, "1:plain"}, {"LogMsg 1 m `open", kUnparsable, nullptr}};
const Body kAcked[] = {{"", kDone, nullptr},
                       {"LogMsg 1 m 'a b'", kDone, "1:a b"},
                       {"'logmsg' 1 '' c", kDone, "1:c"},
                       {"SYNCLOG with any", kDone, nullptr},
                       {"LogMsg 1 m", kRefused, nullptr},
                       {"LogMsg 1 m x y", kRefused, nullptr},
                       {"Nonsense", kRefused, nullptr},
                       {"''", kRefused, nullptr},
                       {"WithAck a 1 SyncLog", kRefused, nullptr},
                       {"LogMsg 1 m `open", kUnparsable, nullptr},
                       {"SyncLog `open", kUnparsable, nullptr},
                       {"'open", kUnparsable, nullptr}};

// Three peers make calls that are to be answered and others, while the queue is worked off message by
// message.
class Model {
 public:
  explicit Model(Choices choices) : m_choices(choices) {
    m_messages.AttachQueue(&m_queue);
    m_acked.AttachQueue(&m_queue);
    m_reporter.m_ackedCalls = &m_acked;
    m_server.AddListener(&m_acked);
    for (uint16_t port = 1; port <= 3; ++port) {
      const Endpoint endpoint(0x7F000001, port);
      Give(m_server, endpoint, "CONN");
      m_peers.emplace_back(endpoint,
                           Md5(std::exchange(m_server.m_sent, {})[0].second));  // the password is empty
      Give(m_server, endpoint, m_peers.back().second);
    }
    m_log.Take();
  }

  void Run() {
    while (m_choices.AreLeft() && !::testing::Test::HasFailure()) {
      if (m_queue.m_messages.empty() || m_choices.Below(2) == 0) {
        MakeCall();
      } else {
        DeliverOne();
      }
    }
    EXPECT_GT(m_answers, 1000u);
  }

 private:
  struct Call {
    const Body* body;
    std::pair<Endpoint, std::string> peer;  // with its cookie
    std::string client;                     // empty: a plain call
    uint64_t number;
  };

  struct Client {
    uint64_t last, refused;
  };

  void MakeCall() {
    Call call{&kPlain[m_choices.Below(std::size(kPlain))], m_peers[m_choices.Below(3)], "", 0};
    std::string text = call.body->text;
    if (m_choices.Below(2) == 0) {
      call.body = &kAcked[m_choices.Below(std::size(kAcked))];
      call.client = std::string(m_choices.Below(5) + 1, 'a');
      const auto known = m_clients.find(call.client);
      call.number = (known != m_clients.end() ? known->second.last : 0) + m_choices.Below(4);
      text = "WithAck " + call.client + " " + std::to_string(call.number) + " " + call.body->text;
    }
    Give(m_server, call.peer.first, call.peer.second + text);
    m_calls.push_back(call);
    m_server.m_sent.clear();  // what was relayed
  }

  void DeliverOne() {
    const StillQueue::Message message = m_queue.m_messages.front();
    m_queue.m_messages.pop_front();
    const size_t pending = m_queue.m_messages.size();
    bool isDone = true, isParsed = m_parser.ParseArgs(message.args.c_str());
    if (isParsed) {
      isDone = message.target->Dispatch(message.name.c_str(), m_parser.GetArgs());
    } else {
      m_reporter.OnParseError(message.target, message.name.c_str(), message.args.c_str());
    }
    const bool isWakeUp = message.name.empty();
    if (!isWakeUp) {
      EXPECT_EQ(Expect(m_calls.front()) || !isParsed, isDone) << message.args;
      m_calls.pop_front();
    }
    EXPECT_EQ(std::exchange(m_expectedAnswers, {}), std::exchange(m_server.m_sent, {})) << message.args;
    Lines lines;
    for (const std::string& line : m_log.Take()) {
      if (line[0] == '1') lines.push_back(line);
    }
    EXPECT_EQ(std::exchange(m_expectedLines, {}), lines) << message.args;
    // The queue rests now, although others may wait for an answer.
    const bool wakes = !isParsed && std::any_of(m_calls.begin(), m_calls.end(),
                                                [](const Call& call) { return !call.client.empty(); });
    ASSERT_EQ(pending + wakes, m_queue.m_messages.size()) << message.args;
    if (!wakes) return;
    EXPECT_EQ("", m_queue.m_messages.back().name);
  }

  // Notes what the call must bring about. False: it is refused.
  bool Expect(const Call& call) {
    const bool isDone = call.body->result == kDone;
    bool isRun = true;
    if (!call.client.empty()) {
      auto known = m_clients.find(call.client);
      if (known == m_clients.end() && call.number == 1)
        known = m_clients.emplace(call.client, Client{}).first;
      Client client{};
      isRun = known != m_clients.end() && call.number == known->second.last + 1;
      if (isRun) ++known->second.last, known->second.refused += !isDone;
      if (known != m_clients.end()) client = known->second;
      m_expectedAnswers.emplace_back(call.peer.first, "now:" + call.peer.second + "Ack " + call.client + " " +
                                                          std::to_string(client.last) + " " +
                                                          std::to_string(call.number) + " " +
                                                          std::to_string(client.refused));
      ++m_answers;
    }
    if (isRun && call.body->line != nullptr) m_expectedLines.emplace_back(call.body->line);
    return isDone || !isRun;
  }

  Choices m_choices;
  CapturedLog m_log;
  StillQueue m_queue;
  RemoteMessages m_messages;
  UnpluggedServer m_server;
  AckedCalls m_acked{m_messages, m_server};
  ErrReporter m_reporter;
  Velk::ArgsParser m_parser{Velk::GDQ::kMaxArgs};
  std::vector<std::pair<Endpoint, std::string>> m_peers;
  std::deque<Call> m_calls;  // made and not delivered
  std::map<std::string, Client> m_clients;
  Datagrams m_expectedAnswers;
  Lines m_expectedLines;
  size_t m_answers = 0;
};

}  // namespace

TEST(AckedCalls, AgreesWithAMapOfClients) {
  Model(Choices::Random(13, 100000)).Run();
}
