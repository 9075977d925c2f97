#include "common/IniFile3.h"

#include <float.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/unit/Choices.h"
#include "tests/unit/IniModel.h"

namespace {

class IniFile3Test : public testing::Test {
 protected:
  std::string Path(const std::string& name) const { return m_dir.path + "/" + name; }

  std::string Write(const std::string& text) const {
    m_dir.Write("a.ini", text);
    return Path("a.ini");
  }

  TempDirectory m_dir;
};

TEST_F(IniFile3Test, LoadsLinesAsListed) {
  const std::string longValue(2000, 'v');
  struct {
    std::string text;
    std::string content;
  } const rows[] = {
      {"", ""},
      {"[A]\nk=v\n", "[A]{k|v}"},
      {"[A]\nk=v", "[A]{k|v}"},
      {" \t[A] x\n  key =  value  \n", "[A]{key |value  }"},
      {"[A]\nk=v\r\n", "[A]{k|v\r}"},
      {"[A]\n# k=v\n  #k=v\nk=a#b\n;c=d\n", "[A]{k|a#b}{;c|d}"},
      {"k=v\n[A]\n=v\nnothing\n\nk=\n", "[-]{k|v}[A]{|v}{k|}"},
      {"[]\nk=v\n[[]]\n", "[[]]{k|v}[[]"},
      {"[A]\n[B\nk=v\n", "[A]{k|v}"},
      {"[A]\na=1\nb=2\n[B]\n[a]\nA=3\nc=4\n", "[A]{a|3}{b|2}{c|4}[B]"},
      {"[A]\nk=\" a\\\"b\\\\ \" rest\n", "[A]{k| a\"b\\ }"},
      {"[A]\nk=\"a\nl=\"a\\\"\nm=\"\"\n", "[A]{m|}"},
      {"[A]\nk=a\\\\b\\c\\\"\nl=a\\\nm=a\\", "[A]{k|a\\bc\"}{l|a\n}{m|a\\}"},
      {std::string("[A]\nk=a\0b\nl=c\n", 14), "[A]{k|a}{l|c}"},
      {"[A]\nk=" + longValue + "=w\n",
       "[A]{k|" + longValue.substr(0, 1021) + "}{" + longValue.substr(1021) + "|w}"},
  };
  for (const auto& row : rows) {
    IniFile3 ini;
    EXPECT_NE(0, ini.Load(Write(row.text).c_str()));
    EXPECT_EQ(row.content, Dump(ini)) << row.text;
  }
}

TEST_F(IniFile3Test, SavesLinesAsListed) {
  IniFile3 ini;
  ini.SetString("", "k", "plain\"");
  ini.SetString("A", "with space", "a \"b\\");
  ini.SetString("A", "bare", "C:\\x");
  ini.SetString("A", "null", nullptr);
  ini.SetString(nullptr, "first", "");
  ini.SetString("A", nullptr, "no key");
  ini.SetString("[]", "K", ini.GetString("", "k", "") + 1);  // a part of the value it replaces
  const std::string path = Path("out.ini");
  EXPECT_NE(0, ini.Save(path.c_str()));
  EXPECT_EQ("first=\n[]\nk=lain\"\n[A]\nwith space=\"a \\\"b\\\\\"\nbare=C:\\\\x\nnull=\n",
            m_dir.Read("out.ini"));
}

TEST_F(IniFile3Test, ComesBackFromItsFileAsItWas) {
  const char* const kPieces[] = {"\n", "=",     " ",       "\"", "\\", "#", "]",
                                 "\t", "[A]\n", "[a b]\n", "k=", "K ", "x", "\xFF"};
  Choices choices = Choices::Random(20240102, 15000);
  unsigned told = 0;
  while (choices.AreLeft() && !HasFailure()) {
    std::string text;
    for (unsigned n = choices.Below(100); n != 0; --n) text += kPieces[choices.Below(std::size(kPieces))];
    told += CheckSavedAndLoaded(m_dir, text);
  }
  EXPECT_GT(told, 100u);
}

TEST_F(IniFile3Test, ReadsAndWritesTypes) {
  IniFile3 ini;
  const auto set = [&ini](const char* text) { ini.SetString("s", "k", text); };
  const auto get = [&ini] { return std::string(ini.GetString("S", "K", "none")); };
  const std::pair<const char*, bool> kBools[] = {{"T", true},   {"true", true}, {"Y", true},
                                                 {"yes", true}, {"1x", true},   {"", false},
                                                 {"on", false}, {"0", false},   {" true", false}};
  for (const auto& [text, isTrue] : kBools) {
    set(text);
    EXPECT_EQ(isTrue, ini.GetBool("s", "k", !isTrue)) << text;
  }
  for (const char* section : {"s", "none"}) {
    EXPECT_TRUE(ini.GetBool(section, "none", true));
    EXPECT_EQ(7, ini.GetInt(section, "none", 7));
    EXPECT_EQ(0.5, ini.GetDouble(section, "none", 0.5));
    EXPECT_EQ(-3.0f, ini.GetDb(section, "none", -3.0f));
    EXPECT_STREQ("def", ini.GetString(section, "none", "def"));
  }
  ini.SetInt("s", "k", INT_MIN);
  EXPECT_EQ(INT_MIN, ini.GetInt("s", "k", 0));
  set(" 99999999999999999999");
  EXPECT_EQ(INT_MAX, ini.GetInt("s", "k", 0));
  for (const double value : {0.25, -1e15, DBL_MAX}) {
    ini.SetDouble("s", "k", value);
    EXPECT_EQ(value, ini.GetDouble("s", "k", 0));
  }
  ini.SetDouble("s", "k", -9e-10);
  EXPECT_EQ("0.000000", get());
  ini.SetBool("s", "k", true);
  EXPECT_EQ("true", get());
  ini.SetDb("s", "k", 0.1f);
  EXPECT_EQ("-20.000000", get());
  EXPECT_NEAR(0.1, ini.GetDb("s", "k", 0), 1e-6);
  EXPECT_EQ(-100, IniFile3::Float2Db(0));
  set(nullptr);
  EXPECT_EQ(1.0f, ini.GetDb("s", "k", 5));  // present, but null
  EXPECT_EQ(5, ini.GetInt("s", "k", 5));

  char buf[4] = "old";
  set("abcdef");
  EXPECT_EQ(nullptr, ini.GetString("s", "k", buf, 0, "def"));
  EXPECT_STREQ("def", ini.GetString("s", "none", buf, sizeof buf, "def"));
  EXPECT_STREQ("old", buf);
  EXPECT_EQ(buf, ini.GetString("s", "k", buf, sizeof buf, "def"));
  EXPECT_STREQ("abc", buf);
}

TEST_F(IniFile3Test, StopsEnumeratingAtTheFirstFalse) {
  IniFile3 ini;
  ini.Load(Write("[A]\na=1\nb=2\n[B]\nc=3\n").c_str());
  int calls = 0;
  const auto untilB = [](const char*, const char* key, const char*, void* user) {
    ++*static_cast<int*>(user);
    return key[0] != 'b';
  };
  EXPECT_FALSE(ini.EnumAllValues(untilB, &calls));
  EXPECT_EQ(2, calls);
  EXPECT_TRUE(ini.EnumValues("B", untilB, &calls) && ini.EnumValues("none", untilB, &calls));
  EXPECT_EQ(3, calls);
}

TEST_F(IniFile3Test, RefusesWhatItCannotLoad) {
  ASSERT_EQ(0, mkfifo(Path("fifo").c_str(), 0600));
  m_dir.Write("huge", "[A]\nk=v\n");
  ASSERT_EQ(0, truncate(Path("huge").c_str(), IniFile3::kMaxFileSize + 1));
  for (const std::string& path : {m_dir.path, Path("fifo"), std::string("/dev/zero"), Path("huge"),
                                  Path("none/a.ini"), Path(std::string(300, 'p')), std::string()}) {
    IniFile3 ini;
    ini.SetString("A", "k", "old");
    EXPECT_EQ(0, ini.Load(path.c_str())) << path;
    EXPECT_EQ("", Dump(ini)) << path;
    EXPECT_EQ(0, ini.Save(nullptr)) << path;
  }
  IniFile3 ini;
  EXPECT_EQ(0, ini.Load(nullptr));
  EXPECT_EQ(0, ini.Save(Path(std::string(300, 'p')).c_str()));
  EXPECT_EQ(0, ini.Load(Path("new.ini").c_str()));  // a missing file is where a new one starts
  ini.SetInt("A", "k", 1);
  EXPECT_NE(0, ini.Save(nullptr));
  EXPECT_EQ("[A]\nk=1\n", m_dir.Read("new.ini"));
}

TEST_F(IniFile3Test, SavesThroughALinkAndKeepsIt) {
  Write("[A]\nk=1\n");
  ASSERT_EQ(0, symlink("a.ini", Path("link.ini").c_str()));
  IniFile3 ini;
  ASSERT_NE(0, ini.Load(Path("link.ini").c_str()));
  ini.SetInt("A", "k", 2);
  EXPECT_NE(0, ini.Save(nullptr));
  struct stat status {};
  EXPECT_EQ(0, lstat(Path("link.ini").c_str(), &status));
  EXPECT_TRUE(S_ISLNK(status.st_mode));
  EXPECT_EQ("[A]\nk=2\n", m_dir.Read("a.ini"));
}

}  // namespace
