// Client layer: texts that wait in order in a fixed amount of memory.
#pragma once

#include <cstdint>

namespace Velk {

// A first-in, first-out store of texts, each with a time of its owner. Texts are numbered as they come; the
// numbers wrap around at 2^32. One thread at a time.
class HeldLines {
 public:
  // Room that a text has on average; shorter ones leave room for longer ones.
  static constexpr unsigned kMeanLength = 256;

  struct Line {
    uint32_t offset;
    uint32_t length;  // without the NUL
    uint64_t sentUs;
  };

  HeldLines() = default;
  ~HeldLines() { Close(); }
  HeldLines(const HeldLines&) = delete;
  HeldLines& operator=(const HeldLines&) = delete;

  // Room for lines texts, rounded up to a power of two of at least 16, of kMeanLength bytes with the NUL on
  // average. All memory is taken here; false when there is none.
  bool Open(unsigned lines);
  void Close();

  // Copies a text; its time is 0. False: no room.
  bool Append(const char* text, unsigned length);
  void RemoveFirst() { ++m_first; }

  // The numbers of the oldest text and of the next one to come; equal when there is none.
  uint32_t First() const { return m_first; }
  uint32_t End() const { return m_end; }
  bool IsEmpty() const { return m_first == m_end; }

  // number is from First() to End() - 1. Text is NUL-terminated.
  Line& At(uint32_t number) { return m_lines[number & m_mask]; }
  const Line& At(uint32_t number) const { return m_lines[number & m_mask]; }
  const char* Text(uint32_t number) const { return m_bytes + At(number).offset; }

 private:
  bool FindPlace(uint32_t size, uint32_t* offset) const;

  Line* m_lines = nullptr;
  char* m_bytes = nullptr;  // in the same block of memory
  uint32_t m_mask = 0;
  uint32_t m_size = 0;  // of m_bytes
  uint32_t m_first = 0;
  uint32_t m_end = 0;
};

}  // namespace Velk
