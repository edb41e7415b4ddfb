// In place of Store.cpp where hiredis is missing.
#include "Store.h"

namespace engine {

class Store::Core {};

std::unique_ptr<Store> Store::start(const StoreSettings&, std::string* failure) {
    *failure = "this engine was built without hiredis, which a shared store needs: remove the setting shared";
    return nullptr;
}

Store::~Store() = default;

bool Store::classify(catalog::SharedQuestion&&, catalog::Answer*) {
    return false;
}

bool Store::save(std::FILE*) {
    return false;
}

bool Store::load(std::string_view) {
    return false;
}

}  // namespace engine
