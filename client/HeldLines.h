// Client layer: a queue of texts in a fixed amount of memory.
#pragma once

#include <cstdint>

namespace Velk {

// A FIFO of texts, each with a time that the caller sets. Texts are numbered in order of arrival; the numbers
// wrap at 2^32. One thread at a time.
class HeldLines {
 public:
  // Bytes per text on average, with the NUL; shorter texts leave room for longer ones.
  static constexpr unsigned kMeanLength = 256;

  struct Line {
    uint32_t offset;
    uint32_t length;  // without the NUL
    uint64_t sentUs;  // set by the caller
  };

  HeldLines() = default;
  ~HeldLines() { Close(); }
  HeldLines(const HeldLines&) = delete;
  HeldLines& operator=(const HeldLines&) = delete;

  // Allocates room for this many texts, rounded up to a power of two from 16 to 2^20. No other operation
  // allocates. False: out of memory.
  bool Open(unsigned lines);
  void Close();

  // Copies a text and sets its time to 0. False: no room.
  bool Append(const char* text, unsigned length);
  void RemoveFirst() { ++m_first; }

  // The numbers of the oldest text and of the next one to be appended; equal when empty.
  uint32_t First() const { return m_first; }
  uint32_t End() const { return m_end; }
  bool IsEmpty() const { return m_first == m_end; }

  // number must be from First() to End() - 1. Text() is NUL-terminated.
  Line& At(uint32_t number) { return m_lines[number & m_mask]; }
  const Line& At(uint32_t number) const { return m_lines[number & m_mask]; }
  const char* Text(uint32_t number) const { return m_bytes + At(number).offset; }

 private:
  bool FindPlace(uint32_t size, uint32_t* offset) const;

  Line* m_lines = nullptr;
  char* m_bytes = nullptr;  // in the same block, after the lines
  uint32_t m_mask = 0;
  uint32_t m_size = 0;  // of m_bytes
  uint32_t m_first = 0;
  uint32_t m_end = 0;
};

}  // namespace Velk
