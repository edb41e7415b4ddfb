// A catalogue file in a folder of its own.
#pragma once

#include <stdexcept>

#include "catalog/Catalog.h"
#include "catalog/Guard.h"
#include "catalog/Writer.h"
#include "support/TempDir.h"

// ThreadSanitizer does not deliver SIGBUS and SIGSEGV to a handler that leaves by siglongjmp().
#ifdef __SANITIZE_THREAD__
#define KATD_NEEDS_SYNCHRONOUS_SIGNALS GTEST_SKIP()
#else
#define KATD_NEEDS_SYNCHRONOUS_SIGNALS static_assert(true)
#endif

namespace catalog {

class CatalogFixture : public testing::Test {
protected:
    CatalogFixture() { installFaultGuard(); }
    ~CatalogFixture() override { uninstallFaultGuard(); }

    void write(Builder* builder, bool compact = false) {
        std::filesystem::remove(path);
        std::string failure;
        ASSERT_TRUE(builder->write(path, compact, {{1, {"list", 7, 0}}}, {}, &result, &failure)) << failure;
    }

    template <class File>
    auto opened() const {
        std::string failure;
        auto file = File::open(path, &failure);
        if (!file) throw std::runtime_error(failure);
        return file;
    }
    // Opens the file, which must be good, to read or to change it.
    std::shared_ptr<Catalog> openCatalog() const { return opened<Catalog>(); }
    std::unique_ptr<Update> openUpdate() const { return opened<Update>(); }

    // Gives the entry one category, from the list 1.
    static void put(Update* update, const std::string& text, unsigned category) {
        Url url;
        readEntry(text, &url);
        Entry entry;
        entry.pairs.push_back({static_cast<std::uint16_t>(category), 1});
        update->put(url, entry);
    }

    katd_test::TempDir folder;
    const std::string path = folder / "catalog.mdb";
    Builder::Result result;
};

}  // namespace catalog
