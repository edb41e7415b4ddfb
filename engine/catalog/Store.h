// Answers from a store that several machines share.
#ifndef KATD_ENGINE_STORE_H
#define KATD_ENGINE_STORE_H

#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

#include "StoreSettings.h"
#include "catalog/Catalog.h"
#include "catalog/Shared.h"

namespace engine {

// Asks a store and remembers its answers. While the store cannot be used, questions are answered from what is
// remembered, and the store is tried again and again. One message to standard error says when that begins and
// one when it ends. Thread-safe.
class Store {
public:
    // Starts the threads that connect; the store need not be there. Null on failure; *failure is then a
    // sentence.
    static std::unique_ptr<Store> start(const StoreSettings& settings, std::string* failure);
    // Returns at once, or after two seconds if the name service does not answer.
    ~Store();
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    // Waits for the answer as long as the settings say, but not while the store is known to be down. False if
    // the answer is not there by then; it will be remembered when it comes. REQUIRES: *answer is empty.
    bool classify(catalog::SharedQuestion&& question, catalog::Answer* answer);

    // Writes what is remembered to the file; false with errno set if that fails.
    bool save(std::FILE* file);
    // Reads what save() wrote. False if the text is something else or cut; then nothing has changed.
    bool load(std::string_view text);

private:
    class Core;

    explicit Store(std::shared_ptr<Core> core) : core_(std::move(core)) {}

    const std::shared_ptr<Core> core_;
};

}  // namespace engine

#endif
