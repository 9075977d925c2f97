// Dispatch layer: splits the argument text of a call.
#pragma once

#include "common/IArgsList.h"

namespace Velk {

// Argument text: arguments separated by white space (isspace(3)). One that begins with ' ` or " is quoted: it
// ends at the next quote of that kind, and the next argument may follow without white space. In quotes, a
// tilde makes the next character literal. In an unquoted argument no character is special.
//
// One thread at a time. Keeps its buffers: parsing a text of up to 255 characters allocates nothing.
class ArgsParser {
 public:
  class Value : public IArg {
   public:
    const char* AsStr() const override { return m_text; }
    long long AsInt() const override;
    double AsNum() const override;
    void* AsPtr() const override;

    const char* m_text = nullptr;  // in the parser's buffer; null: not yet filled
  };

  // The list that a handler gets. Does not own the values.
  class Args final : public IArgsList {
   public:
    unsigned int GetCount() const override { return m_count; }
    const IArg* GetItem(unsigned int index) const override;
    const IArg* operator[](unsigned int index) const override;

    const Value* m_values = nullptr;
    unsigned int m_count = 0;
  };

  // A text with more than maxArgs arguments cannot be parsed.
  explicit ArgsParser(unsigned int maxArgs);
  ArgsParser(const ArgsParser&) = delete;
  ArgsParser& operator=(const ArgsParser&) = delete;
  virtual ~ArgsParser();

  // Parses text; null counts as empty. Invalidates the texts of the previous parse. False: more than maxArgs
  // arguments, a missing closing quote, or a tilde at the end of a quoted text. The arguments up to the error
  // stay available, the unfinished one included.
  bool ParseArgs(const char* text);

  // The arguments of the last parse. The parser owns the list. Call this again after another parse.
  const Args* GetArgs();

 private:
  void MakeRoomFor(const char* text);

  unsigned int m_granule = 256;
  unsigned int m_capacity = 256;
  char* m_buffer;
  Value* m_values;
  unsigned int m_maxArgs;
  unsigned int m_count = 0;
  Args m_args;
};

}  // namespace Velk
