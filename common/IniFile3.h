// Configuration layer: a text file of sections, keys and values, held in memory.
#pragma once

// Sections and their keys keep the order of first appearance. Names match without regard to case; the first
// spelling is kept. Lookups are linear, so loading takes time quadratic in the number of keys. Not
// thread-safe.
//
// A null section means the keys before the first section header; "" means the section "[]". A null key is
// never found and never set. Returned texts belong to this object and are valid until the value is replaced
// or the file cleared.
//
// The file format, by line (a line longer than kLineSize - 1 bytes counts as several):
//   # comment              only if # is the first non-blank character
//   [name]                 text after the first ] is ignored
//   key=value              blanks before = belong to the key; blanks right after = are dropped
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

    // text may point into the old text.
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

  // Drops all content and the path.
  void ClearAll();
  // Replaces all content with that of a regular file. 5,000 keys take 0.05 s and 0.5 MiB. Never blocks on a
  // pipe or device. 0: the path is null or too long, or the file cannot be opened or read or is not a regular
  // file. Then there is no content, but Save(nullptr) uses the path unless it is null or too long.
  int Load(const char* path);
  // Writes all content to path; null: the path last loaded or saved. Comments are lost. Replaces a regular
  // file atomically; a symbolic link to it stays. A pipe or device gets only what it takes without blocking,
  // which counts as success. 0: no path, path too long, or not written, see AtomicFile::Commit().
  //
  // Some content cannot be loaded again: values with a line feed, values without a space (saved unquoted)
  // that begin with a tab or a double quote, lines that are too long (see above), keys that contain "=" or
  // begin with "#", "[" or a blank, sections with "]". A null value is loaded as "".
  int Save(const char* path);
  // No effect; kept for old callers.
  void EnableDbgLog(bool on) { m_dbgLog = on; }

  // The getters return def if the section, the key or the value is missing.
  const char* GetString(const char* section, const char* key, const char* def) const;
  // Copies the value, cut to size bytes with the NUL, and returns buf. If there is no value, returns def and
  // leaves buf unchanged. Null if size is 0.
  const char* GetString(const char* section, const char* key, char* buf, unsigned size,
                        const char* def) const;
  // Decimal, clamped to the range of int; 0 if it is not a number.
  int GetInt(const char* section, const char* key, int def) const;
  double GetDouble(const char* section, const char* key, double def) const;
  // True for values that begin with T, t, Y, y or 1.
  bool GetBool(const char* section, const char* key, bool def) const;
  // Converts decibels to a factor; a null value is 0 dB, not def. def is a factor.
  float GetDb(const char* section, const char* key, float def) const;

  // The setters add a missing section or key.
  void SetString(const char* section, const char* key, const char* value) { AddValNode(section, key, value); }
  void SetInt(const char* section, const char* key, int value);
  // Six decimals; no sign if the magnitude is below 1e-9.
  void SetDouble(const char* section, const char* key, double value);
  void SetBool(const char* section, const char* key, bool value);
  // Stores the factor in decibels.
  void SetDb(const char* section, const char* key, float factor);

  // Call back in file order. Return false as soon as the callback does. The callback may set values, but not
  // load or clear.
  bool EnumSections(SectionCallback callback, void* user) const;
  bool EnumValues(const char* section, ValueCallback callback, void* user) const;
  bool EnumValues2(const SectNode* section, ValueCallback callback, void* user) const;
  bool EnumAllValues(ValueCallback callback, void* user) const;

  // Null: not found.
  ValNode* FindNode(const char* section, const char* key) const;
  // Finds or appends a section; null goes first.
  SectNode* AddSectNode(const char* section);
  // Finds or appends a key and sets its value to a copy of value, which may point into the old one. Null: key
  // is null.
  ValNode* AddValNode(const char* section, const char* key, const char* value);

  // Factor to decibels and back. Factor 0 gives -100 dB, which gives 0.00001.
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
