// What a shared store holds, for the commands that read.
#ifndef KATCATALOG_STOREREADER_H
#define KATCATALOG_STOREREADER_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "Arguments.h"
#include "catalog/Shared.h"

namespace katcatalog {

class Store;

// All functions throw listreader::Failure.
class StoreReader {
public:
    // Whether the arguments name a store, and not a file.
    static bool isMeant(const Arguments& arguments) { return arguments.catalog.rfind("redis:", 0) == 0; }
    explicit StoreReader(const Arguments& arguments);
    ~StoreReader();

    // Where it is, without user and password.
    std::string name() const;
    const std::string& version() const { return version_; }
    // Whether it has changes of a push that has not ended.
    bool isUnfinished();

    // `key` is what the entry has in a catalogue. Foreign and damaged records are left out.
    using See = std::function<void(std::string_view key, const catalog::SharedEntry& entry)>;
    // The entries that cover the URL, the most specific first.
    void find(const catalog::Url& url, const See& see);
    void forEach(const See& see);
    std::uint64_t foreign() const { return foreign_; }

private:
    const std::unique_ptr<Store> store_;
    std::string version_;
    std::uint64_t foreign_ = 0;  // records that were left out
};

}  // namespace katcatalog

#endif
