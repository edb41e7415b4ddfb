#include "NameValuePairs.h"

#include <cassert>
#include <cstddef>

#include "StringHelper.h"

namespace QOR_SPACE {

TypedValue::TypedValue() = default;

TypedValue::~TypedValue() = default;

const char* TypedValue::toString() const {
    return text.c_str();
}

NameValuePairs::NameValuePairs() = default;

NameValuePairs::~NameValuePairs() = default;

NameValuePairs& NameValuePairs::operator=(const NameValuePairs& other) {
    if (this != &other) pairs = other.pairs;
    return *this;
}

int NameValuePairs::find(const std::string& name) const {
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        if (StringHelper::equalsIgnoreCase(pairs[i].name.c_str(), name.c_str())) return static_cast<int>(i);
    }
    return -1;
}

int NameValuePairs::add(const NameValuePair<TypedValue>& pair) {
    pairs.push_back(pair);
    return static_cast<int>(pairs.size()) - 1;
}

const NameValuePair<TypedValue>& NameValuePairs::get(int index) const {
    assert(index >= 0 && static_cast<std::size_t>(index) < pairs.size());
    return pairs[static_cast<std::size_t>(index)];
}

int NameValuePairs::get(const std::string& name, NameValuePair<TypedValue>& out) const {
    const int index = find(name);
    if (index >= 0) out = get(index);
    return index;
}

std::string NameValuePairs::getByName(const std::string& name) const {
    const int index = find(name);
    return index < 0 ? std::string() : get(index).value.text;
}

bool NameValuePairs::remove(const std::string& name) {
    const int index = find(name);
    if (index < 0) return false;
    pairs.erase(pairs.begin() + index);
    return true;
}

NameValuePair<TypedValue> NameValuePairs::remove(int index) {
    NameValuePair<TypedValue> removed = get(index);
    pairs.erase(pairs.begin() + index);
    return removed;
}

}  // namespace QOR_SPACE
