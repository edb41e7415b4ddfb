// An ordered record of named values.
#ifndef QOR_NAMEVALUEPAIRS_H
#define QOR_NAMEVALUEPAIRS_H

#include <cstdint>
#include <string>
#include <vector>

#include "Mutex.h"

namespace QOR_SPACE {

// A value with its text form; only the text is ever read. Plain value, no locking.
class TypedValue : public QorObject {
public:
    TypedValue();
    TypedValue(const TypedValue&) = default;
    TypedValue& operator=(const TypedValue&) = default;
    ~TypedValue() override;

    // The text form, valid until the value changes.
    const char* toString() const override;

    std::int32_t type = 1;   // type code
    double number = 0;       // numeric form
    std::string text = "0";  // text form
};

// A named value. Plain value; toString() keeps its text in the pair, so one pair must not be asked by two
// threads at once.
template <class Value>
class NameValuePair : public QorObject {
public:
    NameValuePair() = default;
    NameValuePair(const std::string& pairName, const Value& pairValue) : name(pairName), value(pairValue) {}
    NameValuePair(const NameValuePair&) = default;
    NameValuePair& operator=(const NameValuePair&) = default;
    ~NameValuePair() override = default;

    // "name=text", valid until this pair is asked again, changed or destroyed.
    const char* toString() const override {
        shown = name + '=' + value.toString();
        return shown.c_str();
    }

    std::string name;  // compared without regard to case
    Value value;

private:
    mutable std::string shown;  // what toString() handed out last
};

// Pairs in insertion order. Names that differ only in case are the same name; the first match wins. Plain
// value, no locking.
class NameValuePairs : public QorObject {
public:
    NameValuePairs();
    NameValuePairs(const NameValuePairs&) = default;
    ~NameValuePairs() override;
    virtual NameValuePairs& operator=(const NameValuePairs& other);

    // Appends a copy, also when the name is there already; returns its index.
    int add(const NameValuePair<TypedValue>& pair);
    // The pair at `index`, valid until the list changes. Asserts 0 <= index < count.
    const NameValuePair<TypedValue>& get(int index) const;
    // Copies the first pair of that name into `out` and returns its index; -1 and `out` unchanged when there
    // is none.
    int get(const std::string& name, NameValuePair<TypedValue>& out) const;
    // Text of the first value of that name, empty when there is none.
    std::string getByName(const std::string& name) const;
    // Removes the first pair of that name; false when there is none.
    bool remove(const std::string& name);
    // Removes the pair at `index` and returns it. Asserts 0 <= index < count.
    NameValuePair<TypedValue> remove(int index);

    std::vector<NameValuePair<TypedValue>> pairs;  // in insertion order

private:
    // Index of the first pair of that name, -1 when there is none.
    int find(const std::string& name) const;
};

}  // namespace QOR_SPACE

#endif
