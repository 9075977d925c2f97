// Dispatch layer: splits the argument text of a call.
#pragma once

#include "common/IArgsList.h"

namespace Velk {

// Argument text: arguments separated by white space (isspace(3)). One that begins with ' ` or " ends at the
// next such character, and a tilde in it makes the next character literal; the next argument may follow
// at once. In any other argument no character is special.
//
// One thread at a time. Keeps its buffers, so that parsing texts of up to 255 characters allocates nothing.
class ArgsParser {
 public:
  class Value : public IArg {
   public:
    const char* AsStr() const override { return m_text; }
    long long AsInt() const override;
    double AsNum() const override;
    void* AsPtr() const override;

    const char* m_text = nullptr;  // in the parser's buffer, null until a parse fills it
  };

  // What a handler is given. Not the owner of the values.
  class Args final : public IArgsList {
   public:
    unsigned int GetCount() const override { return m_count; }
    const IArg* GetItem(unsigned int index) const override;
    const IArg* operator[](unsigned int index) const override;

    const Value* m_values = nullptr;
    unsigned int m_count = 0;
  };

  // More than maxArgs arguments are an error.
  explicit ArgsParser(unsigned int maxArgs);
  ArgsParser(const ArgsParser&) = delete;
  ArgsParser& operator=(const ArgsParser&) = delete;
  virtual ~ArgsParser();

  // Ends the life of all texts of the parse before. A null text has no arguments. False: more than maxArgs
  // arguments, a quote without its end, or nothing after a tilde in quotes; what was parsed until then
  // stays counted.
  bool ParseArgs(const char* text);

  // The arguments of the last parse; the object is the parser's own and changes with GetArgs() only.
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
