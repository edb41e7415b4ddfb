#include <gtest/gtest.h>

#include "util/Log.h"

using namespace QOR_SPACE;

namespace {

// Counts the calls around its records.
class CountingLog : public Log {
public:
    using Log::Log;
    void beforeWrite() override { ++before; }
    void afterWrite() override { ++after; }
    int before = 0;
    int after = 0;
};

}  // namespace

TEST(Log, WritesRecordsBetweenItsHooks) {
    StringOutputStream stream(0);
    CountingLog log(&stream);
    log.write("text", Log::ERROR);  // no level and no date here
    log.write("text\n");
    log.write("");
    LogEntry entry;
    NameValuePair<TypedValue> pair;
    pair.name = "a";
    entry.add(pair);
    log.write(entry);
    log.write(LogEntry());
    const std::string expected = "text\ntext\n\na=0\n==\n==\n";
    EXPECT_EQ(expected, stream.getString());
    EXPECT_EQ(5, log.before);
    EXPECT_EQ(5, log.after);
    Log::disableLog();
    log.write("dropped");
    Log::enableLog();
    EXPECT_EQ(expected, stream.getString());
    EXPECT_EQ(5, log.before);

    OutputStream failing;
    CountingLog broken(&failing);
    testing::internal::CaptureStderr();
    EXPECT_NO_THROW(broken.write("lost"));
    EXPECT_EQ("Unimplemented\n", testing::internal::GetCapturedStderr());
    EXPECT_EQ(1, broken.after);
}

TEST(Log, HandsOutTheLogsOfTheProcess) {
    Log::setExtensionLimits(0);
    EXPECT_EQ(4, Log::_extensionLimits);
    Log* const debug = Log::errLog();
    Log* const dummy = Log::debugLog();
    EXPECT_NE(debug, dummy);
    Log::setDebugLogEnabled(true);
    EXPECT_EQ(debug, Log::debugLog());
    Log::setDebugLogEnabled(false);
    EXPECT_EQ(dummy, Log::debugLog());
    Log::setLogLevel(Log::WARNING);
    EXPECT_EQ(debug, Log::warningLog());
    Log::setLogLevel(Log::ERROR);
    EXPECT_EQ(dummy, Log::warningLog());
    Log::setLogLevel(Log::INFO);

    testing::internal::CaptureStderr();
    dummy->write("dropped", Log::ERROR);
    debug->write("no path yet", Log::DEBUG);
    const std::string shown = testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::string::npos, shown.find("dropped"));
    EXPECT_NE(std::string::npos, shown.find("\tdebug\tno path yet\n"));
}
