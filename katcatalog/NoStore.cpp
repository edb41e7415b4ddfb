// In place of Push.cpp, Store.cpp and StoreReader.cpp where hiredis is missing.
#include "Push.h"
#include "StoreReader.h"
#include "listreader/Failure.h"

namespace katcatalog {

namespace {

[[noreturn]] void refuse() {
    throw listreader::Failure(listreader::failed, "shared stores are left out: this build has no hiredis");
}

}  // namespace

class Store {};

void push(const Arguments&) {
    refuse();
}

StoreReader::StoreReader(const Arguments&) {
    refuse();
}
StoreReader::~StoreReader() = default;
std::string StoreReader::name() const {
    return {};
}
bool StoreReader::isUnfinished() {
    return false;
}
void StoreReader::find(const catalog::Url&, const See&) {}
void StoreReader::forEach(const See&) {}

}  // namespace katcatalog
