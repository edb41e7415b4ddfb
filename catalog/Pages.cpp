#include "Pages.h"

#include <cstring>

#include "Catalog.h"

namespace catalog {

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

// Takes the value from the pages of its own that it is on.
bool RecordWalk::takeOverflow(const Node* node, std::size_t space) {
    std::size_t number = 0;
    if (space < sizeof number) return fail();
    std::memcpy(&number, value_.data(), sizeof number);
    const PageHead* const page = pageAt(number);
    if (page == nullptr || page->kind() != PageHead::overflow) return fail();
    value_ = {reinterpret_cast<const char*>(page + 1), node->valueSize()};
    return value_.size() <= mappedSize_ - number * pageSize_ - sizeof *page || fail();
}

}  // namespace catalog
