#include <gmock/gmock.h>
#include <unistd.h>

#include "UrlServer/ProcessEnd.h"

TEST(ProcessEnd, TheEarlierEndStays) {
    const struct {
        int first, second;  // milliseconds
        bool isPostponed;
        int status;
    } cases[] = {{50, 5000, false, 1}, {5000, 50, false, 2}, {50, 200, true, 2}};
    for (const auto& row : cases) {
        EXPECT_EXIT(
            {
                KATD_SPACE::endWithin(1, row.first);
                (row.isPostponed ? KATD_SPACE::postponeEnd : KATD_SPACE::endWithin)(2, row.second);
                for (;;)
                    pause();
            },
            testing::ExitedWithCode(row.status), "");
    }
}
