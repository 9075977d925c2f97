// Collects what is logged while it lives, instead of printing it.
#pragma once

#include "common/LogPrinter.h"
#include "tests/unit/Test.h"

class CapturedLog : public IDailyLog2 {
 public:
  explicit CapturedLog(bool trace) {
    LogPrinter* printer = LogPrinter::Instance();
    printer->m_sink = this;
    printer->m_consoleEnabled = false;
    printer->m_traceEnabled = trace;
  }
  ~CapturedLog() override {
    LogPrinter* printer = LogPrinter::Instance();
    printer->m_sink = nullptr;
    printer->m_consoleEnabled = true;
    printer->m_traceEnabled = false;
  }

  // The lines so far, each with its type's number in front: "0:text". Forgets them.
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
  std::mutex m_mutex;
  std::vector<std::string> m_lines;
};
