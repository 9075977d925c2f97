#include "common/IniFile3.h"

#include <fcntl.h>
#include <float.h>

#include "tests/unit/Choices.h"
#include "tests/unit/IniModel.h"

namespace {

struct IniFile3Test : testing::Test {
  const TempDirectory m_dir;
};

TEST_F(IniFile3Test, LoadsLinesAsListed) {
  const std::string longValue(2000, 'v');
  const std::tuple<std::string, std::string> rows[] = {
      {"", ""},
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
  for (const auto& [text, content] : rows) {
    IniFile3 ini;
    m_dir.Write("a.ini", text);
    EXPECT_NE(0, ini.Load(m_dir.Path("a.ini").c_str()));
    EXPECT_EQ(content, Dump(ini)) << text;
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
  ini.SetString("[]", "K", ini.GetString("", "k", "") + 1);  // K is k; the new value points into the old one
  EXPECT_NE(0, ini.Save(m_dir.Path("out.ini").c_str()));
  EXPECT_EQ("first=\n[]\nk=lain\"\n[A]\nwith space=\"a \\\"b\\\\\"\nbare=C:\\\\x\nnull=\n",
            m_dir.Read("out.ini"));
}

TEST_F(IniFile3Test, SurvivesSavingAndLoading) {
  const char* const kPieces[] = {"\n", "=",     " ",       "\"", "\\", "#", "]",
                                 "\t", "[A]\n", "[a b]\n", "k=", "K ", "x", "\xFF"};
  Choices choices = Choices::Random(20240102, 15000);
  unsigned survived = 0;
  while (choices.AreLeft() && !HasFailure()) {
    std::string text;
    for (unsigned n = choices.Below(100); n != 0; --n) text += kPieces[choices.Below(std::size(kPieces))];
    survived += CheckSavedAndLoaded(m_dir, text);
  }
  EXPECT_GT(survived, 100u);
}

TEST_F(IniFile3Test, ReadsAndWritesTypes) {
  IniFile3 ini;
  const std::pair<const char*, bool> flags[] = {{"T", true},   {"true", true}, {"Y", true},
                                                {"yes", true}, {"1x", true},   {"", false},
                                                {"on", false}, {"0", false},   {" true", false}};
  for (const auto& [text, flag] : flags) {
    ini.SetString("s", "k", text);
    EXPECT_EQ(flag, ini.GetBool("S", "K", !flag)) << text;
  }
  ini.SetString("s", "k", " 99999999999999999999");
  EXPECT_EQ(INT_MAX, ini.GetInt("s", "k", 0));
  ini.SetString("s", "k", "-2147483649");
  EXPECT_EQ(INT_MIN, ini.GetInt("s", "k", 0));
  for (const char* section : {"s", "none"}) {
    EXPECT_TRUE(ini.GetBool(section, "none", true));
    EXPECT_EQ(7, ini.GetInt(section, "none", 7));
    EXPECT_EQ(0.5, ini.GetDouble(section, "none", 0.5));
    EXPECT_EQ(-3.0f, ini.GetDb(section, "none", -3.0f));
    EXPECT_STREQ("def", ini.GetString(section, "none", "def"));
  }
  ini.SetInt("s", "int", INT_MIN);
  ini.SetDouble("s", "tiny", -9e-10);
  ini.SetBool("s", "bool", true);
  ini.SetDb("s", "db", 0.1f);
  ini.SetString("s", "k", nullptr);
  EXPECT_EQ("[s]{k|-}{int|-2147483648}{tiny|0.000000}{bool|true}{db|-20.000000}", Dump(ini));
  EXPECT_EQ(1.0f, ini.GetDb("s", "k", 5));  // a null value is 0 dB
  EXPECT_EQ(5, ini.GetInt("s", "k", 5));
  EXPECT_NEAR(0.1, ini.GetDb("s", "db", 0), 1e-6);
  ini.SetDouble("s", "k", DBL_MAX);
  EXPECT_EQ(DBL_MAX, ini.GetDouble("s", "k", 0));
  EXPECT_EQ(-100, IniFile3::Float2Db(0));
  EXPECT_TRUE(ini.EnumValues("none", nullptr, nullptr));

  char buf[4] = "old";
  EXPECT_EQ(nullptr, ini.GetString("s", "k", buf, 0, "def"));
  EXPECT_STREQ("def", ini.GetString("s", "none", buf, sizeof buf, "def"));
  EXPECT_STREQ("old", buf);
  EXPECT_EQ(buf, ini.GetString("s", "int", buf, sizeof buf, "def"));
  EXPECT_STREQ("-21", buf);
}

// Loading never blocks. The path is kept, as a file that cannot be read may still be written.
TEST_F(IniFile3Test, LoadsRegularFilesOnlyAndSavesToOthersToo) {
  const std::string fifo = m_dir.Path("fifo");
  ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
  const std::string tooLong = m_dir.Path(std::string(300, 'p'));
  const std::tuple<std::string, bool> rows[] = {
      // path, whether Save() succeeds
      {m_dir.path, false}, {fifo, true}, {"/dev/zero", true}, {m_dir.Path("none/a.ini"), false},
      {tooLong, false},    {"", false},
  };
  for (const auto& [path, isSaved] : rows) {
    IniFile3 ini;
    ini.SetString("A", "k", "old");
    EXPECT_EQ(0, ini.Load(path.c_str())) << path;
    EXPECT_EQ("", Dump(ini)) << path;
    EXPECT_EQ(isSaved, ini.Save(nullptr) != 0) << path;
  }
  IniFile3 ini;
  EXPECT_EQ(0, ini.Load(nullptr));
  EXPECT_EQ(0, ini.Save(tooLong.c_str()));

  const int reader = open(fifo.c_str(), O_RDONLY | O_NONBLOCK);
  ini.SetInt("A", "k", 1);
  EXPECT_NE(0, ini.Save(fifo.c_str()));
  char text[100] = "";
  EXPECT_EQ(8, read(reader, text, sizeof text));
  EXPECT_STREQ("[A]\nk=1\n", text);
  ini.SetString("A", "more than a pipe holds", std::string(1 << 20, 'x').c_str());
  EXPECT_NE(0, ini.Save(fifo.c_str()));
  close(reader);
}

TEST_F(IniFile3Test, StartsAFileAndKeepsALink) {
  IniFile3 ini;
  EXPECT_EQ(0, ini.Load(m_dir.Path("file").c_str()));
  ini.SetInt("A", "k", 1);
  EXPECT_NE(0, ini.Save(nullptr));
  EXPECT_EQ("[A]\nk=1\n", m_dir.Read("file"));

  ASSERT_EQ(0, symlink("file", m_dir.Path("link").c_str()));
  ASSERT_NE(0, ini.Load(m_dir.Path("link").c_str()));
  ini.SetInt("A", "k", 2);
  EXPECT_NE(0, ini.Save(nullptr));
  EXPECT_TRUE(std::filesystem::is_symlink(m_dir.Path("link")));
  EXPECT_EQ("[A]\nk=2\n", m_dir.Read("file"));
}

}  // namespace
