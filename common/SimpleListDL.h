// Foundation layer: doubly linked list of small values.
#pragma once

// Keeps values in the order of appending. Owns its nodes, but not what the values point to. Not thread-safe.
template <class T>
class SimpleListDL {
 public:
  struct Node {
    Node* m_prev;
    Node* m_next;
    T m_value;
  };

  SimpleListDL() = default;
  SimpleListDL(const SimpleListDL&) = delete;
  SimpleListDL& operator=(const SimpleListDL&) = delete;
  ~SimpleListDL() {
    for (Node* node = m_head; node != nullptr;) {
      Node* next = node->m_next;
      delete node;
      node = next;
    }
  }

  // The oldest node, or null.
  Node* Head() const { return m_head; }
  unsigned Count() const { return m_count; }

  void Append(const T& value) {
    Node* node = new Node{m_tail, nullptr, value};
    (m_tail != nullptr ? m_tail->m_next : m_head) = node;
    m_tail = node;
    ++m_count;
  }

  // Unlinks and frees a node of this list.
  void Remove(Node* node) {
    (node->m_prev != nullptr ? node->m_prev->m_next : m_head) = node->m_next;
    (node->m_next != nullptr ? node->m_next->m_prev : m_tail) = node->m_prev;
    --m_count;
    node->m_prev = node->m_next = nullptr;
    delete node;
  }

 private:
  Node* m_head = nullptr;
  Node* m_tail = nullptr;
  unsigned m_count = 0;
};
