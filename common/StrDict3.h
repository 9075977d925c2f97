// Foundation layer: dictionary with C-string keys.
#pragma once

#include <cstdint>

// Maps texts to small values (flags, pointers, member-function pointers) with a trie. Nodes come from a pool
// and return to it, so a dictionary that is cleared and filled again does not allocate. Does not own what its
// values point to. Not thread-safe. Null and empty keys are never present.
template <class T>
class StrDict3 {
 public:
  // Longest key, in bytes. Get() ignores the rest of a longer one.
  static constexpr unsigned kMaxKeyLength = 65535;

  struct Node {
    bool m_hasValue;  // a key ends here
    int8_t m_char;    // case-folded; siblings are sorted by it, as signed bytes on every machine
    Node* m_next;     // sibling
    Node* m_child;    // first of the nodes for the next character
    T m_value;        // valid only if m_hasValue
  };

  // Source of nodes.
  class IAllocator {
   public:
    virtual ~IAllocator() = default;
    // The node's content is undefined.
    virtual Node* Get() = 0;
    virtual void Release(Node* node) = 0;
  };

  // Allocates nodes in blocks and frees them only when it is destroyed.
  template <unsigned kNodesPerBlock>
  class Allocator final : public IAllocator {
   public:
    Allocator() = default;
    Allocator(const Allocator&) = delete;
    Allocator& operator=(const Allocator&) = delete;
    ~Allocator() override {
      while (m_blocks != nullptr) {
        Block* block = m_blocks;
        m_blocks = block->m_previous;
        delete block;
      }
    }

    Node* Get() override {
      if (m_free == nullptr) AddBlock();
      Node* node = m_free;
      m_free = node->m_next;
      ++m_used;
      return node;
    }

    void Release(Node* node) override {
      node->m_next = m_free;
      m_free = node;
      --m_used;
    }

    unsigned Total() const { return m_total; }
    unsigned Used() const { return m_used; }

   private:
    struct Block {
      Node m_nodes[kNodesPerBlock];
      Block* m_previous;
    };

    void AddBlock() {
      Block* block = new Block;
      block->m_previous = m_blocks;
      m_blocks = block;
      m_total += kNodesPerBlock;
      for (Node& node : block->m_nodes) node.m_next = &node + 1;
      block->m_nodes[kNodesPerBlock - 1].m_next = nullptr;
      m_free = block->m_nodes;
    }

    Node* m_free = nullptr;  // chained by m_next
    Block* m_blocks = nullptr;
    unsigned m_total = 0;
    unsigned m_used = 0;
  };

  // Without caseSensitive, ASCII letters are folded to upper case (foldToUpper) or lower case. allocator must
  // outlive the dictionary; null: the dictionary's own pool.
  explicit StrDict3(bool caseSensitive = true, bool foldToUpper = false, IAllocator* allocator = nullptr)
      : m_allocator(allocator != nullptr ? allocator : &m_pool),
        m_caseSensitive(caseSensitive),
        m_foldToUpper(foldToUpper ? 1 : 0) {}
  StrDict3(const StrDict3&) = delete;
  StrDict3& operator=(const StrDict3&) = delete;
  virtual ~StrDict3() { Clear(); }

  // Stores value under the first maxLen characters of key (usually kMaxKeyLength) and replaces an older
  // value. False: key is null or empty, or maxLen is 0.
  bool Set0(unsigned maxLen, const char* key, T value) {
    if (key == nullptr || key[0] == '\0' || maxLen == 0) return false;
    Node** link = &m_root;
    Node* node;
    unsigned i = 0;
    do {
      node = GetNode(link, Fold(key[i]));
      link = &node->m_child;
    } while (++i < maxLen && key[i] != '\0');
    node->m_hasValue = true;
    node->m_value = value;
    return true;
  }

  // The value stored under key; T() if there is none.
  T Get(const char* key) const {
    const Node* node = FindNode(key);
    return node != nullptr && node->m_hasValue ? node->m_value : T();
  }

  // Removes all keys. The pool keeps the nodes.
  void Clear() {
    ReleaseAllNodes(m_root);
    m_root = nullptr;
  }

  // Releases root, its next siblings and all their descendants.
  void ReleaseAllNodes(Node* root) {
    // Not recursive: keys come from the network and may be long. A node's remaining siblings are appended to
    // its children.
    while (root != nullptr) {
      Node* node = root;
      root = node->m_next;
      if (node->m_child != nullptr) {
        LastOf(node->m_child)->m_next = root;
        root = node->m_child;
      }
      ReleaseNode(node);
    }
  }

 private:
  static Node* LastOf(Node* node) {
    while (node->m_next != nullptr) node = node->m_next;
    return node;
  }

  int8_t Fold(char c) const {
    if (!m_caseSensitive) {
      if (m_foldToUpper != 0 && c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
      if (m_foldToUpper == 0 && c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return static_cast<int8_t>(c);
  }

  // Finds or inserts the node of c in the sibling list that starts at *link.
  Node* GetNode(Node** link, int8_t c) {
    while (*link != nullptr && (*link)->m_char < c) link = &(*link)->m_next;
    Node* next = *link;
    if (next != nullptr && next->m_char == c) return next;
    // Avoids a virtual call if the pool is our own.
    Node* node = m_allocator == &m_pool ? m_pool.Get() : m_allocator->Get();
    *node = Node{false, c, next, nullptr, T()};
    *link = node;
    return node;
  }

  void ReleaseNode(Node* node) {
    if (m_allocator == &m_pool) {
      m_pool.Release(node);
    } else {
      m_allocator->Release(node);
    }
  }

  const Node* FindNode(const char* key) const {
    if (key == nullptr) return nullptr;
    const Node* level = m_root;
    const Node* node = nullptr;
    for (unsigned i = 0; i < kMaxKeyLength && key[i] != '\0'; ++i) {
      const int8_t c = Fold(key[i]);
      node = level;
      while (node != nullptr && node->m_char < c) node = node->m_next;
      if (node == nullptr || node->m_char != c) return nullptr;
      level = node->m_child;
    }
    return node;
  }

  IAllocator* m_allocator;
  Allocator<16u> m_pool;
  bool m_caseSensitive;
  uint32_t m_foldToUpper;
  Node* m_root = nullptr;
};
