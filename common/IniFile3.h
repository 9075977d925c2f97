// Configuration layer: a text file of sections, keys and values, held in memory.
#pragma once

// Sections, and the keys of each, stay in the order in which they first appeared. Names are compared without
// regard to case; the first spelling is kept. Lookups walk the lists, so the time to load grows with the
// square of the keys. Not thread-safe.
//
// How a section is named in every call: null means the keys before the first section header, "" means the
// section "[]". A null key is never found and never set. Returned texts belong to the file and live until
// the value is replaced or the file cleared.
//
// The text form, line by line (a line of more than kLineSize - 1 bytes counts as several):
//   # comment              only where # is the first character that is not blank
//   [name]                 what follows the first ] is ignored
//   key=value              the key keeps blanks before =, the value loses those after = and keeps later ones
//   key="value"            ends at the next double quote; the rest of the line is ignored
// A backslash in a value makes the next character literal. All other lines are skipped.
class IniFile3 {
 public:
  static constexpr unsigned kPathSize = 260;  // with the NUL
  static constexpr unsigned kLineSize = 1024;

  // Owns a copy of one text, or null.
  class StrValue {
   public:
    StrValue() = default;
    StrValue(const char* text) { Set(text); }
    StrValue(const StrValue& other) { Set(other.m_text); }
    ~StrValue() { delete[] m_text; }
    StrValue& operator=(const char* text) {
      Set(text);
      return *this;
    }
    StrValue& operator=(const StrValue& other) {
      if (this != &other) Set(other.m_text);
      return *this;
    }

    // text may lie within the old text.
    void Set(const char* text);
    const char* Str() const { return m_text; }

   private:
    char* m_text = nullptr;
  };

  struct ValNode {
    StrValue m_key;
    StrValue m_value;  // may be null
    ValNode* m_next = nullptr;
  };

  struct SectNode {
    StrValue m_name;   // null: the keys before the first section header
    ValNode m_values;  // sentinel
    SectNode* m_next = nullptr;
  };

  using SectionCallback = bool (*)(const char* name, void* user);
  using ValueCallback = bool (*)(const char* section, const char* key, const char* value, void* user);

  IniFile3() = default;
  IniFile3(const IniFile3&) = delete;
  IniFile3& operator=(const IniFile3&) = delete;
  ~IniFile3() { ClearAll(); }

  // Forgets all content and the path.
  void ClearAll();
  // Replaces all content by that of a regular file of any size: 5,000 keys take 0.05 s and 0.5 MiB. Never
  // blocks on a pipe or device. 0: no content, because the path is null or does not fit, or the file cannot
  // be opened, is no regular one or cannot be read to its end. A path that fits is kept for Save() even so.
  int Load(const char* path);
  // Writes all content to path, or to the path last loaded or saved when null. Comments are not kept. A
  // regular file is replaced as a whole; a symbolic link to it stays. A pipe or device gets what it has
  // room for at once, with or without a reader, and that counts as success. 0: no path, or it does not fit,
  // or the file could not be written and is as it was.
  //
  // Not everything that can be set survives the file: no value with a line feed, none without a space that
  // begins with a tab or a double quote, no line longer than kLineSize, no name that its line would read
  // differently (a key with =, a section with ]). A null value comes back as "".
  int Save(const char* path);
  // Kept for callers; nothing reads it.
  void EnableDbgLog(bool on) { m_dbgLog = on; }

  // The getters return def when the section, the key or the value is missing.
  const char* GetString(const char* section, const char* key, const char* def) const;
  // Copies at most size bytes, NUL included, and returns buf; def leaves buf as it was. Null for size 0.
  const char* GetString(const char* section, const char* key, char* buf, unsigned size,
                        const char* def) const;
  // Decimal, limited to the range of int; 0 for what is no number.
  int GetInt(const char* section, const char* key, int def) const;
  double GetDouble(const char* section, const char* key, double def) const;
  // True for values that begin with T, t, Y, y or 1.
  bool GetBool(const char* section, const char* key, bool def) const;
  // A value in decibel as a factor; a null value is 0 dB. def is a factor.
  float GetDb(const char* section, const char* key, float def) const;

  // The setters add the section and the key where they are missing.
  void SetString(const char* section, const char* key, const char* value) { AddValNode(section, key, value); }
  void SetInt(const char* section, const char* key, int value);
  // Six decimals; a magnitude below 1e-9 becomes 0.
  void SetDouble(const char* section, const char* key, double value);
  void SetBool(const char* section, const char* key, bool value);
  // Stores the factor in decibel.
  void SetDb(const char* section, const char* key, float factor);

  // Call back in file order until the callback returns false; false when it did. The callback may set
  // values, but not load or clear.
  bool EnumSections(SectionCallback callback, void* user) const;
  bool EnumValues(const char* section, ValueCallback callback, void* user) const;
  bool EnumValues2(const SectNode* section, ValueCallback callback, void* user) const;
  bool EnumAllValues(ValueCallback callback, void* user) const;

  // Null when there is none.
  ValNode* FindNode(const char* section, const char* key) const;
  // Finds or appends.
  SectNode* AddSectNode(const char* section);
  // Finds or appends and replaces the value, unless it is the stored text itself. Null for a null key.
  ValNode* AddValNode(const char* section, const char* key, const char* value);

  // Factor to decibel and back. 0 is -100 dB.
  static double Float2Db(double x);
  static double Db2Float(double d);

 private:
  bool StorePath(const char* path);
  void ClearSections();
  bool ReadFrom(int fd);
  SectNode* FindSectNode(const char* section) const;

  char m_path[kPathSize] = "";
  SectNode m_sections;  // sentinel
  bool m_dbgLog = false;
};
