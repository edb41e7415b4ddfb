#include "Pages.h"

#include <cstring>

#include "Catalog.h"

namespace catalog {

// The head of a record, or of a branch to another page. Its key follows; then, in a leaf, its value.
struct RecordWalk::Node {
    // Together the size of the value; in a branch, with the flags, the number of the page.
    std::uint16_t low;
    std::uint16_t high;
    std::uint16_t flags;
    std::uint16_t keySize;

    static constexpr std::uint16_t isOnOverflow = 1;  // the value has pages of its own; here is their number

    std::size_t valueSize() const { return low | std::size_t{high} << 16U; }
    std::size_t page() const {
        if constexpr (sizeof(std::size_t) > 4) return valueSize() | std::size_t{flags} << 32U;
        return valueSize();
    }
    std::string_view key() const { return {reinterpret_cast<const char*>(this + 1), keySize}; }
};

RecordWalk::RecordWalk(const Catalog& catalog)
    : mapping_(catalog.mapping()),
      mappedSize_(static_cast<std::size_t>(catalog.mappedSize())),
      pageSize_(catalog.pageSize()) {}

bool RecordWalk::fail() {
    isDamaged_ = true;
    return false;
}

// Null if there is no such page.
const PageHead* RecordWalk::pageAt(std::size_t number) const {
    if (number >= mappedSize_ / pageSize_) return nullptr;
    const auto* const page = reinterpret_cast<const PageHead*>(mapping_ + number * pageSize_);
    return page->number == number ? page : nullptr;
}

// Null if it is not within the page.
const RecordWalk::Node* RecordWalk::nodeAt(const PageHead* page, unsigned index) const {
    const std::size_t offset = reinterpret_cast<const std::uint16_t*>(page + 1)[index];
    if (offset % 2 != 0 || offset + sizeof(Node) > pageSize_) return nullptr;
    const auto* const node = reinterpret_cast<const Node*>(reinterpret_cast<const char*>(page) + offset);
    return offset + sizeof *node + node->keySize <= pageSize_ ? node : nullptr;
}

bool RecordWalk::seek(std::string_view key) {
    const auto* const first = reinterpret_cast<const MetaPage*>(mapping_);
    const auto* const second = reinterpret_cast<const MetaPage*>(mapping_ + pageSize_);
    depth_ = 0;
    return enter((second->transaction > first->transaction ? second : first)->records.root, key);
}

// Continues the path with this page and moves to the first record from there on whose key is not less.
bool RecordWalk::enter(std::size_t number, std::string_view key) {
    for (;; ++depth_) {
        const PageHead* const page = depth_ < maxDepth ? pageAt(number) : nullptr;
        if (page == nullptr || page->nodesEnd <= sizeof *page || page->nodesEnd > pageSize_) return fail();
        const bool isBranch = page->kind() == PageHead::branch;
        if (!isBranch && page->kind() != PageHead::leaf) return fail();
        Level& level = levels_[depth_];
        level = {page, static_cast<unsigned>(page->nodesEnd - sizeof *page) / 2, isBranch ? 1U : 0U};
        // The first key of a branch is not stored; it is less than all others.
        for (unsigned end = level.nodes; level.node < end;) {
            const unsigned middle = (level.node + end) / 2;
            const Node* const node = nodeAt(page, middle);
            if (node == nullptr) return fail();
            if (isBranch ? node->key() <= key : node->key() < key) {
                level.node = middle + 1;
            } else {
                end = middle;
            }
        }
        if (!isBranch) return level.node < level.nodes ? take(nodeAt(page, level.node)) : nextLeaf();
        const Node* const node = nodeAt(page, --level.node);
        if (node == nullptr) return fail();
        number = node->page();
    }
}

bool RecordWalk::next() {
    Level& leaf = levels_[depth_];
    return ++leaf.node < leaf.nodes ? take(nodeAt(leaf.page, leaf.node)) : nextLeaf();
}

bool RecordWalk::nextLeaf() {
    while (depth_ > 0) {
        Level& level = levels_[--depth_];
        if (++level.node == level.nodes) continue;
        const Node* const node = nodeAt(level.page, level.node);
        if (node == nullptr) return fail();
        ++depth_;
        return enter(node->page(), {});
    }
    return false;
}

bool RecordWalk::take(const Node* node) {
    if (node == nullptr || node->keySize == 0) return fail();
    key_ = node->key();
    const char* value = key_.data() + key_.size();
    // In the page; none is left at its very end.
    std::size_t space = (mapping_ - reinterpret_cast<std::uintptr_t>(value)) & (pageSize_ - 1);
    if ((node->flags & Node::isOnOverflow) != 0) {
        std::size_t number = 0;
        if (space < sizeof number) return fail();
        std::memcpy(&number, value, sizeof number);
        const PageHead* const page = pageAt(number);
        if (page == nullptr || page->kind() != PageHead::overflow) return fail();
        value = reinterpret_cast<const char*>(page + 1);
        space = mappedSize_ - number * pageSize_ - sizeof *page;
    }
    value_ = {value, node->valueSize()};
    return value_.size() <= space || fail();
}

}  // namespace catalog
