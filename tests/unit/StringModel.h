// Runs one of our string classes beside std::string: what both classes do must agree after every step.
#pragma once

#include <ctype.h>
#include <strings.h>

#include "tests/unit/Choices.h"

template <class String>
class StringModel {
 public:
  explicit StringModel(Choices choices) : m_choices(choices) {}

  void Run() {
    for (unsigned step = 0; m_choices.AreLeft() && !::testing::Test::HasFailure(); ++step) {
      const unsigned operation = Pick(15);
      SCOPED_TRACE("step " + std::to_string(step) + ", operation " + std::to_string(operation));
      Change(operation);
      CheckText();
      CheckParts();
      // A copy taken earlier must not follow the changes.
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
  unsigned Pick(unsigned below) { return m_choices.Below(below); }
  int PickAround(size_t length) { return static_cast<int>(Pick(static_cast<unsigned>(length) + 9)) - 4; }

  void Become(const std::string& text) { m_model = text; }

  void Change(unsigned operation) {
    static const std::string kAlphabet = "abXYz09  \t\r\n\v\f'\x80\xff";
    const bool needsText = operation == 1 || operation == 2 || operation == 5;
    const std::string text = needsText ? m_choices.Text(kAlphabet, 40) : "";
    switch (operation) {
      case 0:
        m_text.Empty();
        return m_model.clear();
      case 1:
      case 2: {
        const unsigned n = Pick(static_cast<unsigned>(text.size()) + 1);  // 0: all
        m_text.Append(text.c_str(), n);
        return Become(m_model + (n != 0 ? text.substr(0, n) : text));
      }
      case 3:
        m_text.Append('c').Append(m_copy);
        return Become(m_model + 'c' + m_copyModel);
      case 4: {
        const unsigned long value = Pick(3) == 0 ? ~0ul : Pick(1000);
        m_text.AppendNum(value);
        return Become(m_model + std::to_string(value));
      }
      case 5:
        m_text.Format("%s-%d", text.c_str(), 7);
        return Become(text + "-7");
      case 6: {  // from the own text
        const unsigned start = Pick(static_cast<unsigned>(m_model.size()) + 1);
        m_text.Append(m_text.Str() + start);
        return Become(m_model + m_model.substr(start));
      }
      case 7:
        m_text.Append(m_text);
        return Become(m_model + m_model);
      case 8:
      case 9:
      case 13:
        if (operation == 8) m_text.TrimLeft();
        if (operation == 9) m_text.TrimRight();
        if (operation == 13) m_text.Trim();
        if (operation != 8) m_model.erase(m_model.find_last_not_of(" \t\r\n") + 1);
        if (operation != 9) m_model.erase(0, std::min(m_model.find_first_not_of(" \t\r\n"), m_model.size()));
        return;
      case 10:
        m_model.assign(Pick(80), 'w');
        memcpy(m_text.GetBuffer(static_cast<unsigned>(m_model.size())), m_model.data(), m_model.size());
        return m_text.ReleaseBuffer(static_cast<int>(m_model.size()));
      case 11:
        m_text.MakeReverse();
        return std::reverse(m_model.begin(), m_model.end());
      case 12:
        m_text.MakeUpper();
        for (char& c : m_model) c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
        return;
      default:
        m_text.MakeLower();
        for (char& c : m_model) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    }
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
