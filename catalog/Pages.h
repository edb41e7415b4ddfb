// The pages of an LMDB file, as LMDB 0.9 lays them out for x86 of this word size, and a walk over its records
// that takes a fraction of the time of LMDB's cursor.
#ifndef KATD_CATALOG_PAGES_H
#define KATD_CATALOG_PAGES_H

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace catalog {

class Catalog;

struct PageHead {
    std::size_t number;
    std::uint16_t unused;
    std::uint16_t flags;
    std::uint16_t nodesEnd;  // of the nodes' offsets, which follow the head
    std::uint16_t freeEnd;

    enum Kind : unsigned { branch = 1, leaf = 2, overflow = 4, meta = 8 };
    unsigned kind() const { return flags & 0xfU; }
};

// The first two pages. That of the later transaction holds.
struct MetaPage {
    struct Database {
        std::uint32_t pageSize;
        std::uint16_t flags;
        std::uint16_t depth;
        std::size_t branchPages;
        std::size_t leafPages;
        std::size_t overflowPages;
        std::size_t entries;
        std::size_t root;
    };

    PageHead head;
    std::uint32_t magic;
    std::uint32_t version;
    std::size_t address;
    std::size_t mapSize;
    Database freePages;
    Database records;
    std::size_t lastPage;
    std::size_t transaction;
};

// Walks over the records of the version that was committed last, in the order of their keys. REQUIRES:
// nothing is committed meanwhile. What it returns points into the mapping.
class RecordWalk {
public:
    explicit RecordWalk(const Catalog& catalog);

    // Moves to the first record whose key is not less. False if there is none or the file is damaged.
    bool seek(std::string_view key);
    // Moves to the next record; likewise. REQUIRES: the last move returned true.
    bool next() {
        Level& leaf = levels_[depth_];
        return ++leaf.node < leaf.nodes ? take(nodeAt(leaf.page, leaf.node)) : nextLeaf();
    }

    bool isDamaged() const { return isDamaged_; }
    std::string_view key() const { return key_; }
    std::string_view value() const { return value_; }

private:
    // The head of a record, or of a branch to another page. Its key follows; then, in a leaf, its value.
    struct Node {
        // Together the size of the value; in a branch, with the flags, the number of the page.
        std::uint16_t low;
        std::uint16_t high;
        std::uint16_t flags;
        std::uint16_t keySize;

        static constexpr std::uint16_t isOnOverflow = 1;  // the number of the value's own pages is here

        std::size_t valueSize() const { return low | std::size_t{high} << 16U; }
        std::size_t page() const {
            if constexpr (sizeof(std::size_t) > 4) return valueSize() | std::size_t{flags} << 32U;
            return valueSize();
        }
        std::string_view key() const { return {reinterpret_cast<const char*>(this + 1), keySize}; }
    };
    // One page of the path from the root, and the node that the path continues with.
    struct Level {
        const PageHead* page;
        unsigned nodes;
        unsigned node;
    };
    static constexpr unsigned maxDepth = 32;  // LMDB's own limit

    const PageHead* pageAt(std::size_t number) const;
    // Null if it is not within the page.
    const Node* nodeAt(const PageHead* page, unsigned index) const {
        const std::size_t offset = reinterpret_cast<const std::uint16_t*>(page + 1)[index];
        if (offset % 2 != 0 || offset + sizeof(Node) > pageSize_) return nullptr;
        const auto* const node = reinterpret_cast<const Node*>(reinterpret_cast<const char*>(page) + offset);
        return offset + sizeof *node + node->keySize <= pageSize_ ? node : nullptr;
    }
    bool enter(std::size_t number, std::string_view key);
    bool nextLeaf();
    bool take(const Node* node) {
        if (node == nullptr || node->keySize == 0) return fail();
        key_ = node->key();
        const char* const value = key_.data() + key_.size();
        // In the page; none is left at its very end.
        const std::size_t space = (mapping_ - reinterpret_cast<std::uintptr_t>(value)) & (pageSize_ - 1);
        value_ = {value, node->valueSize()};
        if ((node->flags & Node::isOnOverflow) != 0) return takeOverflow(node, space);
        return value_.size() <= space || fail();
    }
    bool takeOverflow(const Node* node, std::size_t space);
    bool fail();

    const std::uintptr_t mapping_;
    const std::size_t mappedSize_;
    const std::size_t pageSize_;
    Level levels_[maxDepth];
    unsigned depth_ = 0;
    bool isDamaged_ = false;
    std::string_view key_;
    std::string_view value_;
};

}  // namespace catalog

#endif
