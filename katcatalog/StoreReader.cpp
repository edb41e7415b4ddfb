#include "StoreReader.h"

#include <array>
#include <vector>

#include "Store.h"
#include "listreader/Failure.h"

namespace katcatalog {

namespace {

std::vector<catalog::SharedEntry> entriesOf(const redisReply& value, std::uint64_t* foreign) {
    if (value.type == REDIS_REPLY_STRING && catalog::isGroup(textOf(value)))
        return catalog::decodeGroup(textOf(value));
    if (value.type != REDIS_REPLY_NIL) ++*foreign;
    return {};
}

}  // namespace

StoreReader::StoreReader(const Arguments& arguments)
    : store_(std::make_unique<Store>(arguments)), version_(store_->version()) {
    if (version_.empty()) {
        throw listreader::Failure(
            listreader::failed, "store " + name() + ": it holds no catalogue; make one with katcatalog push");
    }
}

StoreReader::~StoreReader() = default;

std::string StoreReader::name() const {
    return store_->name();
}

bool StoreReader::isUnfinished() {
    return store_->ask({"GET", catalog::sharedUnfinishedKey})->type != REDIS_REPLY_NIL;
}

void StoreReader::find(const catalog::Url& url, const See& see) {
    const catalog::SharedQuestion question(url);
    std::vector<std::string> keys;
    std::vector<std::size_t> levels;
    for (std::size_t candidate = 0; candidate < question.size(); ++candidate) {
        for (std::size_t level = catalog::sharedLevels; level-- > 0;) {
            keys.push_back(question.key(candidate, level));
            levels.push_back(level);
            if (!keys.back().empty()) continue;
            keys.pop_back();
            levels.pop_back();
        }
    }
    Words get{"MGET"};
    get.insert(get.end(), keys.begin(), keys.end());
    const Reply values = store_->ask(get);
    for (std::size_t i = 0; i < keys.size(); ++i) {
        for (const catalog::SharedEntry& entry : entriesOf(*values->element[i], &foreign_)) {
            if (question.isCoveredBy(levels[i], entry.port, entry.rest))
                see(catalog::sharedEntryKey(keys[i], entry), entry);
        }
    }
}

void StoreReader::forEach(const See& see) {
    store_->forEachKeys([&](const std::vector<std::string_view>& keys) {
        Words get{"MGET"};
        for (const std::string_view key : keys) {
            const std::string_view own = key.substr(catalog::sharedPrefix.size());
            constexpr char records[] = {catalog::hostRecord, catalog::networkRecord, catalog::pathRecord};
            if (!own.empty() && std::string_view(records, sizeof records).find(own[0]) != own.npos) {
                get.push_back(key);
            } else {
                ++foreign_;
            }
        }
        if (get.size() == 1) return;
        const Reply values = store_->ask(get);
        for (std::size_t i = 1; i < get.size(); ++i) {
            for (const catalog::SharedEntry& entry : entriesOf(*values->element[i - 1], &foreign_))
                see(catalog::sharedEntryKey(get[i], entry), entry);
        }
    });
}

}  // namespace katcatalog
