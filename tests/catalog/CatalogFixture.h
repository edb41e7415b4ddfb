// A catalogue file in a folder of its own.
#ifndef CATALOG_FIXTURE_H
#define CATALOG_FIXTURE_H

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>

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
        builder->sort();
        std::string failure;
        ASSERT_TRUE(builder->write(path, compact, {{1, {"list", 7, 0}}}, {}, &result, &failure)) << failure;
    }

    Header readHeader() {
        Header header;
        std::string failure;
        const auto catalog = Catalog::open(path, &failure);
        EXPECT_TRUE(catalog) << failure;
        if (catalog) {
            Reader reader(catalog);
            EXPECT_EQ(Reader::done, reader.header(&header));
        }
        return header;
    }

    katd_test::TempDir folder;
    const std::string path = folder / "catalog.mdb";
    Builder::Result result;
};

}  // namespace catalog

#endif
