// Compares one of our string classes with std::string after every step.
#pragma once

#include <ctype.h>
#include <strings.h>

#include <functional>

#include "tests/unit/Choices.h"

template <class String>
class StringModel {
 public:
  explicit StringModel(Choices choices) : m_choices(choices) {}

  void Run() {
    for (unsigned step = 0; m_choices.AreLeft() && !::testing::Test::HasFailure(); ++step) {
      const unsigned operation = Pick(kOperations);
      SCOPED_TRACE("step " + std::to_string(step) + ", operation " + std::to_string(operation));
      Change(operation);
      CheckText();
      CheckParts();
      // A copy that was taken earlier must not have changed.
      ASSERT_EQ(m_copyModel, m_copy.Str());
      if (Pick(8) == 0) {
        String fresh(m_text);
        (Pick(2) == 0 ? m_copy : fresh).Set(m_text);
        if (Pick(2) == 0) m_copy = fresh;
        m_copyModel = m_copy.Str();
      }
      if (m_model.size() > 500) Change(0);
    }
  }

 private:
  static constexpr unsigned kOperations = 14;

  unsigned Pick(unsigned below) { return m_choices.Below(below); }
  int PickAround(size_t length) { return static_cast<int>(Pick(static_cast<unsigned>(length) + 9)) - 4; }

  void Change(unsigned operation) {
    const bool needsText = operation == 1 || operation == 4;
    const std::string text = needsText ? m_choices.Text("abXYz09  \t\r\n\v\f'\x80\xff", 40) : "";
    const unsigned n = Pick(500);
    const std::string old = m_model, part = text.substr(0, n % (text.size() + 1));
    const size_t start = n % (old.size() + 1);
    const unsigned long value = n % 3 == 0 ? ~0ul : n;
    const std::string right = old.substr(0, old.find_last_not_of(" \t\r\n") + 1);
    const size_t margin = std::min(old.find_first_not_of(" \t\r\n"), old.size());
    std::string upper = old, lower = old;
    for (char& c : upper) c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
    for (char& c : lower) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    const auto fill = [&] {
      memset(m_text.GetBuffer(n), 'w', n);
      m_text.ReleaseBuffer(static_cast<int>(n));
    };
    const std::pair<std::function<void()>, std::string> changes[kOperations] = {
        {[&] { m_text.Empty(); }, ""},
        {[&] { m_text.Append(text.c_str(), static_cast<unsigned>(part.size())); },
         old + (part.empty() ? text : part)},
        {[&] { m_text.Append('c').Append(m_copy); }, old + 'c' + m_copyModel},
        {[&] { m_text.AppendNum(value); }, old + std::to_string(value)},
        {[&] { m_text.Format("%s-%d", text.c_str(), 7); }, text + "-7"},
        {[&] { m_text.Append(m_text.Str() + start); }, old + old.substr(start)},
        {[&] { m_text.Append(m_text); }, old + old},
        {[&] { m_text.TrimLeft(); }, old.substr(margin)},
        {[&] { m_text.TrimRight(); }, right},
        {[&] { m_text.Trim(); }, right.substr(std::min(margin, right.size()))},
        {fill, std::string(n, 'w')},
        {[&] { m_text.MakeReverse(); }, std::string(old.rbegin(), old.rend())},
        {[&] { m_text.MakeUpper(); }, upper},
        {[&] { m_text.MakeLower(); }, lower},
    };
    changes[operation].first();
    m_model = changes[operation].second;
  }

  void CheckText() {
    ASSERT_EQ(m_model, m_text.Str());
    ASSERT_EQ(m_model.size(), m_text.Length());
    ASSERT_LE(m_text.Length(), m_text.Capacity());
    EXPECT_EQ(static_cast<int>(m_model.find('c')), m_text.Find('c'));
    EXPECT_EQ(static_cast<int>(m_model.rfind('\xff')), m_text.FindRev('\xff'));
    EXPECT_TRUE(m_text == m_model.c_str());
    EXPECT_EQ(m_model == m_copyModel, m_text == m_copy);
    EXPECT_EQ(strcasecmp(m_model.c_str(), m_copyModel.c_str()) == 0, m_text.EqNoCase(m_copy));
    EXPECT_EQ(m_model < m_copyModel, m_text < m_copy);
    EXPECT_EQ(m_model > m_copyModel, m_text > m_copy);
  }

  void CheckParts() {
    const int length = static_cast<int>(m_model.size());
    const int start = PickAround(m_model.size());
    const int count = PickAround(m_model.size());
    const std::string rest = m_model.substr(static_cast<size_t>(std::min(std::max(start, 0), length)));
    const size_t taken = static_cast<size_t>(std::max(count, 0));
    EXPECT_EQ(rest, m_text.Mid(start).Str());
    EXPECT_EQ(rest.substr(0, taken), m_text.Mid(start, count).Str());
    EXPECT_EQ(m_model.substr(0, taken), m_text.Left(count).Str());
    EXPECT_EQ(m_model.substr(m_model.size() - std::min(taken, m_model.size())), m_text.Right(count).Str());
    EXPECT_EQ(m_text.Mid(start).Length(), m_text.Mid(start).Capacity());
  }

  Choices m_choices;
  String m_text{"start"};
  String m_copy{""};
  std::string m_model = "start";
  std::string m_copyModel;
};
