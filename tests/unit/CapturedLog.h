// Collects what is logged while it exists, instead of printing it.
#pragma once

#include "common/LogPrinter.h"
#include "tests/unit/Test.h"

class CapturedLog : public IDailyLog2 {
 public:
  explicit CapturedLog(bool trace = false) { Set(this, trace); }
  ~CapturedLog() override { Set(nullptr, false); }

  // Returns the lines so far and forgets them. Each begins with the number of its type: "0:text".
  std::vector<std::string> Take() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return std::move(m_lines);
  }

  bool EnableSyslog(const char*, unsigned short) override { return false; }
  void DisableSyslog() override {}
  void Log(ELogMessageType type, const char*, const char* text) override {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_lines.push_back(std::to_string(type) + ":" + text);
  }
  void SyncLog() override {}
  void AddErrorNotify(ILogErrorNotify*) override {}
  void RemoveErrorNotify(ILogErrorNotify*) override {}
  const char* GetLogPath() override { return nullptr; }
  bool EnumerateLogs(bool (*)(const char*, const char*, void*), void*) override { return false; }

 private:
  static void Set(IDailyLog2* sink, bool trace) {
    LogPrinter::Instance()->m_sink = sink;
    LogPrinter::Instance()->m_consoleEnabled = sink == nullptr;
    LogPrinter::Instance()->m_traceEnabled = trace;
  }

  std::mutex m_mutex;
  std::vector<std::string> m_lines;
};
