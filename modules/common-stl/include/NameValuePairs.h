// Ordered lists of named values.
#ifndef QOR_NAMEVALUEPAIRS_H
#define QOR_NAMEVALUEPAIRS_H

#include <cstdint>
#include <string>
#include <vector>

#include "Mutex.h"

namespace QOR_SPACE {

// A value and its string form; only the string is used. Not thread-safe.
class TypedValue : public QorObject {
public:
    TypedValue();
    TypedValue(const TypedValue&) = default;
    TypedValue& operator=(const TypedValue&) = default;
    ~TypedValue() override;

    // The string form, valid until the value changes.
    const char* toString() const override;

    std::int32_t type = 1;   // type code
    double number = 0;       // numeric form
    std::string text = "0";  // string form
};

// A named value. Not thread-safe, not even toString(), which keeps its result in the pair.
template <class Value>
class NameValuePair : public QorObject {
public:
    NameValuePair() = default;
    NameValuePair(const std::string& pairName, const Value& pairValue) : name(pairName), value(pairValue) {}
    NameValuePair(const NameValuePair&) = default;
    NameValuePair& operator=(const NameValuePair&) = default;
    ~NameValuePair() override = default;

    // "name=text", valid until the next call, or until the pair is changed or destroyed.
    const char* toString() const override {
        shown = name + '=' + value.toString();
        return shown.c_str();
    }

    std::string name;  // compared without regard to case
    Value value;

private:
    mutable std::string shown;  // last result of toString()
};

// Pairs in insertion order. Names are compared without regard to case; the first match counts. Not
// thread-safe.
class NameValuePairs : public QorObject {
public:
    NameValuePairs();
    NameValuePairs(const NameValuePairs&) = default;
    ~NameValuePairs() override;
    virtual NameValuePairs& operator=(const NameValuePairs& other);

    // Appends a copy, even if the name exists already, and returns its index.
    int add(const NameValuePair<TypedValue>& pair);
    // The pair at `index`, valid until the list changes. REQUIRES (asserted): 0 <= index < count.
    const NameValuePair<TypedValue>& get(int index) const;
    // Copies the first pair of that name to `out` and returns its index; returns -1 if there is none.
    int get(const std::string& name, NameValuePair<TypedValue>& out) const;
    // String form of the first value of that name, "" if there is none.
    std::string getByName(const std::string& name) const;
    // Removes the first pair of that name. Returns false if there is none.
    bool remove(const std::string& name);
    // Removes and returns the pair at `index`. REQUIRES (asserted): 0 <= index < count.
    NameValuePair<TypedValue> remove(int index);

    std::vector<NameValuePair<TypedValue>> pairs;  // in insertion order

private:
    // Index of the first pair of that name, or -1.
    int find(const std::string& name) const;
};

}  // namespace QOR_SPACE

#endif
